#pragma once

#include <filesystem>
#include <optional>

#include "CameraConfig.h"
#include "FramePool.h"
#include "Output.h"
#include "StreamStatistics.h"

namespace kolvex_host {

/// Which frames become files: every @p every-th one, 0 for none.
struct Keep {
  sarnevo::u32 every = 1;
};

/// The files of one stream, in a folder of their own: a numbered .jpg per picture, or one .m4v elementary
/// stream that any MPEG-4 player takes. frames.csv beside them has a line per frame.
///
/// An MPEG-4 stream is kept whole or not at all, since a frame without those before it is nothing.
/// Writer thread only. Failures are Failure (ExitCode::Output).
class StreamFiles {
 public:
  /// Makes @p folder.
  StreamFiles(const std::filesystem::path& folder, sarnevo::Codec codec, Keep keep);

  /// @p sinceStart  time of arrival, from the beginning of the run.
  /// @p counter     frame counter found in the picture.
  void Write(const PooledFrame& frame, Seconds sinceStart, std::optional<sarnevo::u64> counter);
  void Close();

 private:
  std::filesystem::path folder_;
  Keep keep_;
  OutputFile index_;
  std::optional<OutputFile> stream_;  // MPEG-4 only
  sarnevo::u64 frames_ = 0;
  sarnevo::u64 offset_ = 0;  // in stream_
};

/// A folder name for stream number @p index (from 0) of a camera of that name: readable, unique, and without
/// any character that means something to a shell or a file system.
std::string StreamFolderName(std::size_t index, const std::string& cameraName);

/// The folder for all results, made where it is missing. Refuses one that has something in it, so that files
/// of two runs never mix.
void PrepareOutputFolder(const std::filesystem::path& folder);

}  // namespace kolvex_host
