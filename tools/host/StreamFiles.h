#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "CameraConfig.h"
#include "FramePool.h"
#include "MediaFile.h"
#include "Output.h"
#include "StreamStatistics.h"

namespace kolvex_host {

/// Which frames become files, and which files.
struct Keep {
  sarnevo::u32 every = 1;  ///< of the pictures; 0 for none
  bool mkv = false;        ///< one Matroska file of the whole stream, too
  Seconds segment{0};      ///< a new file of the stream after this time; 0: never
};

/// The files of one stream, in a folder of their own: a numbered .jpg per picture, or one .m4v elementary
/// stream that any MPEG-4 player takes, and a .mkv of either. frames.csv beside them has a line per frame.
///
/// An MPEG-4 stream is kept whole or not at all, since a frame without those before it is nothing.
/// Writer thread only. Failures are Failure (ExitCode::Output).
class StreamFiles {
 public:
  /// Makes @p folder.
  StreamFiles(const std::filesystem::path& folder, sarnevo::Codec codec, Keep keep);

  /// @p sinceStart  time of arrival, from the beginning of the run.
  /// @p counter     frame counter found in the picture.
  /// @p good        the stream has shown that its pictures can be decoded; before that nothing of it is kept.
  void Write(const PooledFrame& frame, Seconds sinceStart, std::optional<sarnevo::u64> counter, bool good);
  void Close();

 private:
  void KeepFrame(const PooledFrame& frame, Seconds sinceStart);
  void BeginSegment(const PooledFrame& frame, Seconds sinceStart);
  void CloseSegment();

  const std::filesystem::path folder_;
  const sarnevo::Codec codec_;
  const Keep keep_;
  OutputFile index_;
  sarnevo::u64 frames_ = 0;
  // The running segment; without --segment it is the only one.
  unsigned segments_ = 0;
  Seconds segmentStart_{0};
  std::string streamName_;
  std::optional<OutputFile> stream_;  // MPEG-4 only
  std::optional<MediaFile> media_;
  sarnevo::u64 offset_ = 0;  // in stream_
  // Of the frame at hand.
  std::string file_;
  std::string place_;
};

/// One stream to standard output, for another program: the frames as they came, or as Matroska. Writer thread only.
class StreamPipe {
 public:
  StreamPipe(sarnevo::Codec codec, bool mkv) : codec_(codec), mkv_(mkv), raw_("-") {}

  /// Begins with the first key frame.
  void Write(const PooledFrame& frame, Seconds sinceStart);

 private:
  const sarnevo::Codec codec_;
  const bool mkv_;
  OutputFile raw_;
  std::optional<MediaFile> media_;
  std::optional<Seconds> first_;
};

/// A folder name for stream number @p index (from 0) of a camera of that name: readable in any language, unique, and
/// without any character that means something to a shell or a file system.
std::string StreamFolderName(std::size_t index, const std::string& cameraName);

/// The folder for all results, made where it is missing. Refuses one that has something in it, so that files
/// of two runs never mix.
void PrepareOutputFolder(const std::filesystem::path& folder);

}  // namespace kolvex_host
