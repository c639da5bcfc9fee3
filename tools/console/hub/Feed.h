#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace kolvex_console {

/// One frame of a camera, or one picture made of it. Never changes; whoever looks at it holds it.
struct Picture {
  std::uint64_t number = 0;  ///< counts up within a feed, from 1
  std::chrono::system_clock::time_point time{};
  std::uint32_t width = 0;  ///< pixels
  std::uint32_t height = 0;
  bool isKey = true;  ///< decodable without a frame before it
  std::span<const std::uint8_t> bytes;
  std::shared_ptr<const void> memory;  ///< keeps the bytes
};
using PicturePtr = std::shared_ptr<const Picture>;

/// An older picture isn't live: nothing begins with it.
inline constexpr std::chrono::seconds kFresh{1};

/// Frames for one viewer that needs all of them in order (a recording), as long as it keeps up. One that doesn't
/// loses what waits and goes on at the next key frame. Any thread.
class FrameQueue {
 public:
  void Put(const PicturePtr& frame);
  /// Null when nothing waits.
  PicturePtr Take();
  bool IsEmpty() const;

 private:
  mutable std::mutex lock_;
  std::deque<PicturePtr> frames_;  // guarded by lock_
  std::size_t bytes_ = 0;          // guarded by lock_
  bool needsKey_ = true;           // guarded by lock_
};

/// What one camera shows: its newest picture as JPEG, one in memory however many look, and its frames as they
/// came for those that record.
///
/// Any thread, but viewers come and go on any thread too: a look is counted as long as its object lives.
class Feed {
 public:
  /// A picture for viewers. The one before goes when nobody is sending it any more.
  void Show(Picture picture);
  /// Lets go of a picture that isn't fresh at @p now, for a camera whose pictures are made only while somebody looks:
  /// who comes next would take it for a live one.
  void Forget(std::chrono::system_clock::time_point now);
  /// A frame as the driver gave it, for recordings.
  void Record(const PicturePtr& frame);

  /// The number of the picture that was shown last, 0 before the first. Without the lock, since a viewer of many cameras
  /// asks all of them at each picture of any.
  std::uint64_t Number() const { return shown_.load(std::memory_order_acquire); }
  /// Null before the first, and when it was forgotten.
  PicturePtr Newest() const;

  class Look {
   public:
    explicit Look(std::shared_ptr<Feed> feed) : feed_(std::move(feed)) {
      feed_->lookers_.fetch_add(1, std::memory_order_relaxed);
    }
    ~Look() { feed_->lookers_.fetch_sub(1, std::memory_order_relaxed); }
    Look(const Look&) = delete;
    Look& operator=(const Look&) = delete;
    Feed& operator*() const { return *feed_; }
    Feed* operator->() const { return feed_.get(); }

   private:
    const std::shared_ptr<Feed> feed_;
  };
  /// Who wants pictures at the moment: while it is 0 none need be made.
  int Lookers() const { return lookers_.load(std::memory_order_relaxed); }

  std::shared_ptr<FrameQueue> OpenQueue();
  /// Somebody wants frames.
  bool IsRecorded() const;
  int Viewers() const;

  /// The camera has been removed: streams of it end.
  void Close() { closed_.store(true, std::memory_order_relaxed); }
  bool IsClosed() const { return closed_.load(std::memory_order_relaxed); }

 private:
  mutable std::mutex lock_;
  PicturePtr newest_;                                      // guarded by lock_
  std::atomic<std::uint64_t> shown_{0};                    // written under lock_
  mutable std::vector<std::weak_ptr<FrameQueue>> queues_;  // guarded by lock_
  // A moment late does no harm: a picture more or less is made.
  std::atomic<int> lookers_{0};
  std::atomic<bool> closed_{false};
};

}  // namespace kolvex_console
