#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "Failure.h"
#include "Output.h"
#include "kolvex/Types.h"

struct AVFormatContext;
struct AVPacket;

namespace kolvex_host {

/// A stream in a Matroska file that players open, at the pace at which the frames came: copied, never encoded.
/// What was written a second ago is readable, whatever becomes of the process. One thread at a time.
class MediaFile {
 public:
  /// @p path may be "-". @p firstKey is the stream's first frame, whose headers players want in advance.
  /// Throws Failure (ExitCode::Output).
  MediaFile(const std::filesystem::path& path, sarnevo::Codec codec, sarnevo::u32 width, sarnevo::u32 height,
            std::span<const sarnevo::u8> firstKey);
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  /// @p time since the file's first frame. Throws Failure (ExitCode::Output).
  void Write(std::span<const sarnevo::u8> frame, std::chrono::milliseconds time, bool isKey);
  /// Completes the file. Throws Failure (ExitCode::Output).
  void Close();

 private:
  static int TakeBytes(void* self, unsigned char* bytes, int size);
  static long TakeSeek(void* self, long offset, int whence);
  void Check(int result);

  OutputFile file_;
  const bool seekable_;
  std::optional<Failure> failure_;  // of the file, until the muxer has returned
  AVFormatContext* muxer_ = nullptr;
  AVPacket* packet_ = nullptr;
  long last_ = -1;                 // milliseconds
  sarnevo::u64 end_ = 0, at_ = 0;  // bytes; where the file ends, and where the next ones go
};

}  // namespace kolvex_host
