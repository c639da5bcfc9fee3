#include "platform/posix/BasicCredentials.h"

#include <algorithm>
#include <cstdint>

#include "platform/SecureErase.h"

namespace sarnevo::platform::posix {

namespace {

// Base64, RFC 4648, 4: three bytes are four digits of six bits.
void AppendBase64(std::string& text, std::string_view bytes) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 0x3F] : '=';
    }
  }
}

}  // namespace

std::string BasicCredentials(std::string_view userName, std::string_view password) {
  std::string secret;
  secret.reserve(userName.size() + 1 + password.size());  // in one place, so that all of it is wiped
  secret.append(userName).append(":").append(password);
  std::string line = "Authorization: Basic ";
  line.reserve(line.size() + (secret.size() + 2) / 3 * 4);
  AppendBase64(line, secret);
  SecureErase(secret);
  return line;
}

}  // namespace sarnevo::platform::posix
