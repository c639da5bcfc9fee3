#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "hub/Feed.h"

namespace kolvex_console {

/// Makes JPEG pictures of an MPEG-4 stream on a thread of its own. It gets frames only while somebody looks, and
/// begins at a key frame.
class Transcoder {
 public:
  /// @p show takes each picture, on the transcoder's thread.
  explicit Transcoder(std::function<void(Picture)> show);
  ~Transcoder();
  Transcoder(const Transcoder&) = delete;
  Transcoder& operator=(const Transcoder&) = delete;

  /// The next frame; at once. Any thread, in the stream's order.
  void Put(const PicturePtr& frame);
  /// Nobody looks any more: what comes next has a gap before it.
  void Pause();

 private:
  void Work();

  const std::function<void(Picture)> show_;
  std::mutex lock_;
  std::condition_variable wake_;
  FrameQueue frames_;
  bool paused_ = true;  // guarded by lock_
  bool fresh_ = false;  // guarded by lock_; the decoder must forget what it has
  int waiting_ = 0;     // guarded by lock_; wake-ups that the thread hasn't seen
  bool ended_ = false;  // guarded by lock_
  std::thread thread_;
};

}  // namespace kolvex_console
