#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "kolvex/Types.h"

namespace kolvex_host {

/// Writes text to standard output. Throws Failure (ExitCode::Output) when the reader has gone or the disk
/// that it goes to is full.
void Print(std::string_view text);

/// Writes one JSON line to standard output.
void PrintJson(const nlohmann::json& value);

/// A JSON value as one text. A camera's name may hold anything; what isn't UTF-8 is replaced and never an error.
/// @p indent in blanks; -1 gives one line.
std::string JsonText(const nlohmann::json& value, int indent);

/// A file being written, or standard output as "-". Each Write goes to the system at once and whole: whatever
/// becomes of this process, the file ends where a Write ended. A write that fails half way, on a full disk, is
/// taken back. Every failure is Failure (ExitCode::Output) with the file's name and the system's reason.
class OutputFile {
 public:
  explicit OutputFile(const std::filesystem::path& path);
  ~OutputFile();
  OutputFile(OutputFile&& other) noexcept;
  OutputFile& operator=(OutputFile&&) = delete;

  void Write(std::span<const sarnevo::u8> bytes);
  void Write(std::string_view text);
  /// Goes on at @p offset; for containers that mend their head at the end.
  void Seek(sarnevo::u64 offset);
  /// Closes; some file systems report a full disk only here. Without it the destructor closes quietly.
  void Close();

  /// Throws what WriteWhole would, as far as that can be known before; writes nothing.
  static void CheckPlace(const std::filesystem::path& path);
  /// A whole file in one call: under another name at first, so that nobody ever sees half of it and what was
  /// there before stays when it can't be written.
  static void WriteWhole(const std::filesystem::path& path, std::span<const sarnevo::u8> bytes);
  static void WriteWhole(const std::filesystem::path& path, std::string_view text);

 private:
  std::filesystem::path path_;
  int descriptor_;
};

}  // namespace kolvex_host
