#pragma once

#include <chrono>
#include <filesystem>
#include <span>

#include "MatroskaMuxer.h"
#include "Output.h"

namespace kolvex_host {

/// A stream in a Matroska file that players open. What was written a second ago is readable, whatever becomes of the
/// process. One thread at a time.
class MediaFile {
 public:
  /// @p path may be "-", for a live stream to standard output; see MatroskaMuxer. Throws Failure (ExitCode::Output).
  MediaFile(const std::filesystem::path& path, sarnevo::Codec codec, sarnevo::u32 width, sarnevo::u32 height,
            std::span<const sarnevo::u8> firstKey)
      : file_(path), video_(TargetOf(path), codec, width, height, firstKey) {}

  /// @p time since the file's first frame. Throws Failure (ExitCode::Output).
  void Write(std::span<const sarnevo::u8> frame, std::chrono::milliseconds time, bool isKey) {
    video_.Write(frame, time, isKey);
  }
  /// Completes the file. Throws Failure (ExitCode::Output).
  void Close() {
    video_.Finish();
    file_.Close();
  }

 private:
  MatroskaMuxer::Target TargetOf(const std::filesystem::path& path) {
    MatroskaMuxer::Target target{[this](std::span<const sarnevo::u8> bytes) { file_.Write(bytes); }, {}};
    if (path != "-") {
      target.seek = [this](sarnevo::u64 offset) { file_.Seek(offset); };
    }
    return target;
  }

  OutputFile file_;
  MatroskaMuxer video_;
};

}  // namespace kolvex_host
