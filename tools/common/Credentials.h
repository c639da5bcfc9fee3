#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace kolvex_host {

/// User name and password of one camera.
struct Login {
  std::string user;
  std::string password;
  bool typed = false;  ///< by a person who was asked

  bool IsEmpty() const { return user.empty() && password.empty(); }
};

/// Who we are towards the cameras. Comes from the environment or a file, never from the command line, which
/// every user of the machine can read.
class Credentials {
 public:
  /// From KOLVEX_USER and KOLVEX_PASSWORD; empty texts where they aren't set.
  static Credentials FromEnvironment();

  /// From a JSON file, {"user": "...", "password": "..."}, with an optional member "cameras" that holds such
  /// objects by address; other members are errors. Throws Failure (ExitCode::Usage) when the file can't be used,
  /// or when others may read it.
  static Credentials FromFile(const std::filesystem::path& path);

  const Login& For(const std::string& address) const;
  /// The login of all cameras that have none of their own.
  const Login& Usual() const { return common_; }
  void SetUsual(Login login) { common_ = std::move(login); }

 private:
  Login common_;
  std::map<std::string, Login> byAddress_;
};

}  // namespace kolvex_host
