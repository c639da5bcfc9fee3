#include "Credentials.h"

#include <cstdlib>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Failure.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

/// @p entry names the camera whose login it is; empty for the login of all. A misspelt member would leave a camera
/// without its password.
Login ReadLogin(const std::filesystem::path& path, const nlohmann::json& object, const std::string& entry) {
  Login login;
  for (const auto& [key, value] : object.items()) {
    if (key == "user") {
      login.user = value.get<std::string>();
    } else if (key == "password") {
      login.password = value.get<std::string>();
    } else if (!entry.empty()) {
      throw Failure(
          ExitCode::Usage,
          fmt::format(
              "The camera {} in the credentials file {} has an unknown member \"{}\": there are user and "
              "password.",
              kolvex_tools::Shown(entry, 40), path.string(), kolvex_tools::Shown(key, 40)));
    } else if (key != "cameras") {
      throw Failure(
          ExitCode::Usage,
          fmt::format("The credentials file {} has an unknown member \"{}\": there are user, password "
                      "and cameras.",
                      path.string(), kolvex_tools::Shown(key, 40)));
    }
  }
  return login;
}

}  // namespace

Credentials Credentials::FromEnvironment() {
  Credentials credentials;
  credentials.common_ = {Environment("KOLVEX_USER"), Environment("KOLVEX_PASSWORD")};
  return credentials;
}

Credentials Credentials::FromFile(const std::filesystem::path& path) {
  std::error_code error;
  const auto mode = std::filesystem::status(path, error).permissions();
  if (error) {
    // Not repeated: a login may have been given in the place of a file's name.
    throw Failure(ExitCode::Usage, "The file that --credentials names can't be read: " + error.message() + ".");
  }
  if ((mode & (std::filesystem::perms::group_all | std::filesystem::perms::others_all)) !=
      std::filesystem::perms::none) {
    throw Failure(ExitCode::Usage, "The credentials file " + path.string() +
                                       " is open to other users: protect it with chmod 600.");
  }
  const auto wrong = [&path] {
    return Failure(ExitCode::Usage, "The credentials file " + path.string() +
                                        " must be an object with the texts \"user\" and \"password\".");
  };
  const nlohmann::json object = ReadJson(path);
  if (!object.is_object()) {
    throw wrong();
  }
  Credentials credentials;
  try {
    credentials.common_ = ReadLogin(path, object, "");
    if (const auto cameras = object.find("cameras"); cameras != object.end()) {
      for (const auto& [address, login] : cameras->items()) {
        credentials.byAddress_[address] = ReadLogin(path, login, address);
      }
    }
  } catch (const nlohmann::json::exception&) {
    throw wrong();
  }
  return credentials;
}

const Login& Credentials::For(const std::string& address) const {
  const auto found = byAddress_.find(address);
  return found == byAddress_.end() ? common_ : found->second;
}

}  // namespace kolvex_host
