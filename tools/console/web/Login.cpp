#include "web/Login.h"

#include <crypt.h>

#include <array>
#include <chrono>
#include <fstream>
#include <memory>
#include <system_error>

#include "Failure.h"
#include "web/PrivateFile.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;

namespace {

constexpr const char* kScrypt = "$7$";
constexpr std::chrono::seconds kPauseAfterWrong{1};

/// Compares without telling by its time how much was right.
bool Same(std::string_view a, std::string_view b) {
  unsigned difference = a.size() == b.size() ? 0U : 1U;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    difference |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
  }
  return difference == 0;
}

std::string Hash(const std::string& password, const std::string& setting) {
  const auto work = std::make_unique<crypt_data>();  // 32 KiB: too much for a thread's stack
  const char* const hash = crypt_r(password.c_str(), setting.c_str(), work.get());
  return hash && hash[0] != '*' ? hash : "";
}

/// RFC 4648, section 4. Nothing for what isn't Base64.
std::optional<std::string> FromBase64(std::string_view text) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  while (text.ends_with('=')) {
    text.remove_suffix(1);
  }
  std::string bytes;
  unsigned word = 0;
  unsigned bits = 0;
  for (const char digit : text) {
    const std::size_t value = kDigits.find(digit);
    if (value == kDigits.npos) {
      return std::nullopt;
    }
    word = word << 6U | static_cast<unsigned>(value);
    if ((bits += 6) >= 8) {
      bytes += static_cast<char>(word >> (bits -= 8) & 0xffU);
    }
  }
  return bytes;
}

}  // namespace

void LoginFile::Write(const std::filesystem::path& path, const std::string& user, const std::string& password) {
  const bool userFits = !user.empty() && user.find_first_of(":\r\n") == user.npos;
  if (!userFits || password.size() < 8 || password.find_first_of(std::string("\r\n\0", 3)) != password.npos) {
    throw Failure(ExitCode::Usage,
                  "A login needs a user name without a colon, and a password of at least 8 characters.");
  }
  std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
  // Salt from the system; the default cost, 16 MiB and about a tenth of a second.
  const bool salted = crypt_gensalt_rn(kScrypt, 0, nullptr, 0, setting.data(), setting.size()) != nullptr;
  const std::string hash = salted ? Hash(password, setting.data()) : "";
  if (hash.empty()) {
    throw Failure(ExitCode::Internal, "This system's crypt library has no scrypt.");
  }
  WritePrivateFile(path, user + ":" + hash + "\n");
}

LoginFile LoginFile::Read(const std::filesystem::path& path) {
  RefuseSharedFile(path);
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  LoginFile login;
  const std::size_t colon = line.find(':');
  if (colon != line.npos) {
    login.user_ = line.substr(0, colon);
    login.hash_ = line.substr(colon + 1);
  }
  if (!login.hash_.starts_with(kScrypt)) {
    throw Failure(ExitCode::Usage, "The login file " + path.string() +
                                       " can't be used: make it with kolvex-host serve --set-password.");
  }
  return login;
}

bool LoginFile::Holds(const std::string& user, const std::string& password) const {
  // Both are looked at each time: the time must not show whether the user exists.
  const bool passwordIsRight = Same(Hash(password, hash_), hash_);
  return Same(user, user_) && passwordIsRight;
}

std::optional<LoginCheck::Result> LoginCheck::Known(std::string_view authorization) const {
  if (authorization.empty()) {
    return Result::Wrong;
  }
  const std::lock_guard guard(lock_);
  if (!right_.empty() && Same(authorization, right_)) {
    return Result::Right;
  }
  return std::nullopt;
}

void LoginCheck::Check(const std::string& authorization, const std::function<void(Result)>& then) {
  const bool taken = desk_.Put([this, authorization, then] {
    // Another request may have brought it meanwhile.
    const bool isRight = Known(authorization) == Result::Right || IsRight(authorization);
    if (isRight) {
      const std::lock_guard guard(lock_);
      right_ = authorization;
    }
    then(isRight ? Result::Right : Result::Wrong);
    if (!isRight) {
      desk_.Pause(kPauseAfterWrong);
    }
  });
  if (!taken) {
    then(Result::Busy);
  }
}

bool LoginCheck::IsRight(std::string_view authorization) const {
  constexpr std::string_view kBasic = "basic ";
  const bool isBasic =
      authorization.size() > kBasic.size() &&
      std::equal(kBasic.begin(), kBasic.end(), authorization.begin(),
                 [](char expected, char given) { return expected == static_cast<char>(given | 0x20); });
  const auto pair = isBasic ? FromBase64(authorization.substr(kBasic.size())) : std::nullopt;
  const std::size_t colon = pair ? pair->find(':') : std::string::npos;
  return colon != std::string::npos && file_.Holds(pair->substr(0, colon), pair->substr(colon + 1));
}

}  // namespace kolvex_console
