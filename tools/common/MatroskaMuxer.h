#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <span>

#include "kolvex/Types.h"

struct AVFormatContext;
struct AVPacket;

namespace kolvex_host {

/// A stream of frames as Matroska, in clusters of a second, at the pace at which the frames came: copied, never encoded.
/// One thread at a time.
class MatroskaMuxer {
 public:
  /// Where the bytes go. What a function throws comes out of the call that needed it.
  struct Target {
    std::function<void(std::span<const sarnevo::u8>)> write;
    /// To a byte from the start, for the sizes that are known at the end. Without it the stream is a live one: it has
    /// no sizes and no index.
    std::function<void(sarnevo::u64)> seek;
  };

  /// Writes what the file begins with. @p firstKey is the first frame, whose headers players want in advance.
  /// Throws Failure (ExitCode::Output) and std::bad_alloc.
  MatroskaMuxer(Target target, sarnevo::Codec codec, sarnevo::u32 width, sarnevo::u32 height,
                std::span<const sarnevo::u8> firstKey);
  ~MatroskaMuxer();
  MatroskaMuxer(const MatroskaMuxer&) = delete;
  MatroskaMuxer& operator=(const MatroskaMuxer&) = delete;

  /// @p time since the first frame; where it doesn't grow, it is the one before and a millisecond. All of it has been
  /// written when the call returns. Throws Failure (ExitCode::Output).
  void Write(std::span<const sarnevo::u8> frame, std::chrono::milliseconds time, bool isKey);
  /// Writes what the file ends with. Throws Failure (ExitCode::Output).
  void Finish();

 private:
  struct FreeContext {
    void operator()(AVFormatContext* context) const;
  };
  struct FreePacket {
    void operator()(AVPacket* packet) const;
  };
  static int TakeBytes(void* self, unsigned char* bytes, int size);
  static long TakeSeek(void* self, long offset, int whence);
  void Check(int result);

  const Target target_;
  std::exception_ptr failure_;  // of the target, until the muxer has returned
  const std::unique_ptr<AVPacket, FreePacket> packet_;
  std::unique_ptr<AVFormatContext, FreeContext> muxer_;
  long last_ = -1;                 // milliseconds
  sarnevo::u64 end_ = 0, at_ = 0;  // bytes; where the file ends, and where the next ones go
};

}  // namespace kolvex_host
