#include "Credentials.h"

#include <cstdlib>
#include <system_error>

#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Failure.h"

namespace kolvex_host {

namespace {

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

Login ReadLogin(const nlohmann::json& object) {
  return {object.value("user", std::string()), object.value("password", std::string())};
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
  if (!error && (mode & (std::filesystem::perms::group_all | std::filesystem::perms::others_all)) !=
                    std::filesystem::perms::none) {
    throw Failure(ExitCode::Usage, "The credentials file " + path.string() +
                                       " is open to other users: protect it with chmod 600.");
  }
  const nlohmann::json object = ReadJson(path);
  Credentials credentials;
  try {
    credentials.common_ = ReadLogin(object);
    if (const auto cameras = object.find("cameras"); cameras != object.end()) {
      for (const auto& [address, login] : cameras->items()) {
        credentials.byAddress_[address] = ReadLogin(login);
      }
    }
  } catch (const nlohmann::json::exception&) {
    throw Failure(ExitCode::Usage, "The credentials file " + path.string() +
                                       " must be an object with the texts \"user\" and \"password\".");
  }
  return credentials;
}

const Login& Credentials::For(const std::string& address) const {
  const auto found = byAddress_.find(address);
  return found == byAddress_.end() ? common_ : found->second;
}

}  // namespace kolvex_host
