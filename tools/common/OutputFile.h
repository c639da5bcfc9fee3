#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>

#include "kolvex/Types.h"

namespace kolvex_host {

/// A file being written. Every failure, a full disk included, is told by Failure (ExitCode::Output) with the
/// system's reason; nothing is lost silently in a buffer, since Close reports it too.
class OutputFile {
 public:
  explicit OutputFile(const std::filesystem::path& path);

  void Write(std::span<const sarnevo::u8> bytes);
  void Write(std::string_view text);
  /// Flushes and closes. Without it the file is closed quietly by the destructor.
  void Close();

  /// A whole file in one call.
  static void WriteWhole(const std::filesystem::path& path, std::span<const sarnevo::u8> bytes);
  static void WriteWhole(const std::filesystem::path& path, std::string_view text);

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  [[noreturn]] void Fail() const;

  std::filesystem::path path_;
  std::unique_ptr<std::FILE, CloseFile> file_;
};

}  // namespace kolvex_host
