#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CameraConfig.h"
#include "Credentials.h"
#include "camera/FolderLock.h"

namespace kolvex_console {

/// A camera with its login.
struct KnownCamera {
  kolvex_host::CameraConfig config;
  kolvex_host::Login login;
};

/// The folder that keeps the cameras: a camera file for each, "credentials.json" in the form of --credentials with
/// their logins, and in "NAME.positions" the pictures of stored positions. Each file is written whole or not at
/// all and readable by its owner alone. Names of files are the cameras' names, with what isn't a letter, digit, dash
/// or underscore as %XX.
///
/// One thread at a time. Without a folder nothing is kept and all operations succeed.
class Store {
 public:
  Store() = default;
  /// Makes the folder if there is none, closes it to other users, and keeps other servers out of it. Throws Failure
  /// (ExitCode::Output) when that fails, and (ExitCode::Usage) for an open folder that holds only other things:
  /// closing that would be a surprise.
  explicit Store(std::filesystem::path folder);

  bool IsKept() const { return !folder_.empty(); }
  /// The server that had the folder before was killed: heads may still move.
  bool WasKilled() const { return lock_ && lock_->WasKilled(); }
  /// The cameras of the folder by name. A file that can't be used is left out, and @p skipped gets a sentence.
  std::vector<KnownCamera> Load(std::vector<std::string>& skipped) const;
  /// Throws Failure (ExitCode::Output); nothing is changed then.
  void Save(const KnownCamera& camera);
  void Remove(const kolvex_host::CameraConfig& camera);
  void Rename(const kolvex_host::CameraConfig& from, const std::string& to);

  /// Null when there is none.
  std::shared_ptr<const std::string> Thumbnail(const std::string& camera, const std::string& position) const;
  void SaveThumbnail(const std::string& camera, const std::string& position, std::string_view jpeg) const;
  void RemoveThumbnail(const std::string& camera, const std::string& position) const;

 private:
  std::filesystem::path FileOf(const std::string& camera) const;
  std::filesystem::path ThumbnailsOf(const std::string& camera) const;
  void WriteLogin(const std::string& address, const kolvex_host::Login* login) const;

  std::filesystem::path folder_;
  std::optional<FolderLock> lock_;
};

}  // namespace kolvex_console
