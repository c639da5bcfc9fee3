#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "FuzzTarget.h"

namespace kolvex_fuzz {

/// A folder for a target's files that lives as long as the process.
class OwnFolder {
 public:
  OwnFolder() : path_((std::filesystem::temp_directory_path() / "kolvex-fuzz-XXXXXX").string()) {
    Check(mkdtemp(path_.data()) != nullptr, "a folder for the file");
  }
  ~OwnFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;

  const std::string& Path() const { return path_; }
  /// The folder without the files of the run before.
  const std::string& Emptied() const {
    for (const auto& file : std::filesystem::directory_iterator(path_)) {
      std::filesystem::remove_all(file);
    }
    return path_;
  }

 private:
  std::string path_;
};

}  // namespace kolvex_fuzz
