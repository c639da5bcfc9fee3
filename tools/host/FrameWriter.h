#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "Failure.h"
#include "FrameInspector.h"
#include "FramePool.h"
#include "StreamFiles.h"

namespace kolvex_host {

/// The one thread that works on frames after they have arrived: it looks into the pictures and writes the
/// files of all streams, so that no receive thread ever waits for a disk.
///
/// Frames are worth nothing until one of their stream could be decoded: a camera that wasn't configured may send
/// another codec, which makes files that look like pictures and are none. So nothing is kept before that.
///
/// The queue is bounded by the frame pools: a frame in it is a frame that its stream's pool lacks.
class FrameWriter {
 public:
  struct StreamOptions {
    sarnevo::Codec codec = sarnevo::CodecMJPEG;
    std::optional<std::filesystem::path> folder;  ///< none: no files
    Keep keep;
    bool inspect = true;    ///< look into all pictures; else until the first good one
    bool toOutput = false;  ///< the stream to standard output
  };

  struct QueuedFrame {
    FrameRef frame;
    std::size_t stream = 0;
    SteadyTime arrived;
  };

  /// Makes the folders and files and starts the thread. Throws Failure (ExitCode::Output).
  FrameWriter(const std::vector<StreamOptions>& streams, SteadyTime start);
  ~FrameWriter();

  /// Any thread; never blocks for longer than a queue operation.
  void Push(QueuedFrame frame);

  /// A file couldn't be written. The frames that follow are dropped; Finish says why.
  bool HasFailed() const { return failed_.load(std::memory_order_relaxed); }
  /// What the pictures of a stream have shown so far. Any thread.
  PictureCounts Counts(std::size_t stream) const;

  /// Works off the queue, closes all files and ends the thread. Throws what went wrong while writing. After
  /// it Push must not be called.
  void Finish();

  /// The latest picture of a stream that needs no frame before it; an empty one when there was none. Any
  /// thread, which also does the decoding.
  Picture LatestPicture(std::size_t stream) const;

 private:
  struct Stream {
    explicit Stream(const StreamOptions& options);

    sarnevo::Codec codec;
    std::optional<StreamFiles> files;
    std::optional<StreamPipe> pipe;
    FrameInspector inspector;
    const bool inspectAll;
    FrameRef latestKey;    // guarded by lock_
    PictureCounts counts;  // guarded by lock_
  };

  void Run();
  void Work(QueuedFrame& queued);
  void Guarded(const std::function<void()>& step) noexcept;
  void Join();

  const SteadyTime start_;
  std::deque<Stream> streams_;      // the thread's, but for what is guarded by lock_
  std::optional<Failure> failure_;  // the thread's; after Finish the caller's
  std::atomic<bool> failed_{false};

  mutable std::mutex lock_;
  std::condition_variable changed_;
  std::deque<QueuedFrame> queue_;  // guarded by lock_
  bool finishing_ = false;         // guarded by lock_
  std::thread thread_;
};

}  // namespace kolvex_host
