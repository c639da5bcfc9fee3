#pragma once

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "web/Desk.h"

namespace kolvex_console {

/// The login file: one line, "USER:HASH", where HASH is what crypt(3) makes of the password with scrypt. Made by
/// `serve --set-password`, readable by its owner alone.
class LoginFile {
 public:
  /// Replaces the file whole. Throws Failure: ExitCode::Usage for a user name or password that can't be one,
  /// ExitCode::Output when the file can't be written.
  static void Write(const std::filesystem::path& path, const std::string& user, const std::string& password);
  /// Throws Failure (ExitCode::Usage) when the file can't be used, or when others may read it.
  static LoginFile Read(const std::filesystem::path& path);

  /// Takes about a tenth of a second and 16 MiB, on purpose.
  bool Holds(const std::string& user, const std::string& password) const;

 private:
  std::string user_;
  std::string hash_;
};

/// Decides on the Authorization field of requests (Basic, RFC 7617).
///
/// A browser sends it with each request and scrypt is slow, so the field that was right last is remembered. What
/// is new is checked on a desk, one at a time, with a pause after each wrong one; when many wait,
/// further ones are refused at once, so that guessing is slow and costs one thread.
class LoginCheck {
 public:
  explicit LoginCheck(LoginFile file) : file_(std::move(file)) {}

  enum class Result { Right, Wrong, Busy };
  /// What is known at once; nothing when it must be checked.
  std::optional<Result> Known(std::string_view authorization) const;
  /// @p then runs on the desk's thread.
  void Check(const std::string& authorization, const std::function<void(Result)>& then);

 private:
  bool IsRight(std::string_view authorization) const;

  const LoginFile file_;
  mutable std::mutex lock_;
  std::string right_;  // guarded by lock_; the field that was right last, empty before
  Desk desk_;          // the last: its thread ends first
};

}  // namespace kolvex_console
