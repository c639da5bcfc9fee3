#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <unistd.h>

/// A folder of the test's own, gone with the object. In memory where the system has that, since thousands of
/// flushes would otherwise wait for a disk that others keep busy.
class TempFolder {
 public:
  TempFolder() {
    const bool memory = access("/dev/shm", W_OK) == 0;
    path_ = (memory ? "/dev/shm" : std::filesystem::temp_directory_path()) / "kolvex-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& Path() const { return path_; }
  /// The folder without what is in it.
  const std::string& Emptied() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      std::filesystem::remove_all(entry);
    }
    return path_;
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  void Write(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
  }
  /// "(none)" for a file that isn't there.
  std::string Read(const std::string& name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "(none)";
  }
  /// The names of all files.
  std::set<std::string> List() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

 private:
  std::string path_;
};
