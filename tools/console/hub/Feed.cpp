#include "hub/Feed.h"

#include <algorithm>

namespace kolvex_console {

namespace {

/// Four seconds of a large stream. Frames are shared between queues, so this bounds what one viewer can hold.
constexpr std::size_t kQueueBytes = 2 * 1024 * 1024;
constexpr std::size_t kQueueFrames = 100;

}  // namespace

void FrameQueue::Put(const PicturePtr& frame) {
  const std::lock_guard guard(lock_);
  if (bytes_ + frame->bytes.size() > kQueueBytes || frames_.size() >= kQueueFrames) {
    frames_.clear();
    bytes_ = 0;
    needsKey_ = true;
  }
  if (needsKey_ && !frame->isKey) {
    return;
  }
  needsKey_ = false;
  frames_.push_back(frame);
  bytes_ += frame->bytes.size();
}

PicturePtr FrameQueue::Take() {
  const std::lock_guard guard(lock_);
  if (frames_.empty()) {
    return nullptr;
  }
  PicturePtr frame = std::move(frames_.front());
  frames_.pop_front();
  bytes_ -= frame->bytes.size();
  return frame;
}

bool FrameQueue::IsEmpty() const {
  const std::lock_guard guard(lock_);
  return frames_.empty();
}

void Feed::Show(Picture picture) {
  const auto fresh = std::make_shared<Picture>(std::move(picture));
  PicturePtr before;  // its memory is given back after the lock
  const std::lock_guard guard(lock_);
  fresh->number = shown_ + 1;
  before = std::exchange(newest_, fresh);
  shown_.store(fresh->number, std::memory_order_release);
}

void Feed::Forget(std::chrono::system_clock::time_point now) {
  PicturePtr before;  // its memory is given back after the lock
  const std::lock_guard guard(lock_);
  if (newest_ && newest_->time < now - kFresh) {
    before = std::move(newest_);
  }
}

void Feed::Record(const PicturePtr& frame) {
  std::vector<std::shared_ptr<FrameQueue>> queues;
  {
    const std::lock_guard guard(lock_);
    for (const auto& weak : queues_) {
      if (auto queue = weak.lock()) {
        queues.push_back(std::move(queue));
      }
    }
  }
  for (const auto& queue : queues) {
    queue->Put(frame);
  }
}

PicturePtr Feed::Newest() const {
  const std::lock_guard guard(lock_);
  return newest_;
}

std::shared_ptr<FrameQueue> Feed::OpenQueue() {
  auto queue = std::make_shared<FrameQueue>();
  const std::lock_guard guard(lock_);
  std::erase_if(queues_, [](const auto& weak) { return weak.expired(); });
  queues_.push_back(queue);
  return queue;
}

bool Feed::IsRecorded() const {
  const std::lock_guard guard(lock_);
  return std::any_of(queues_.begin(), queues_.end(), [](const auto& weak) { return !weak.expired(); });
}

int Feed::Viewers() const {
  const std::lock_guard guard(lock_);
  return Lookers() + static_cast<int>(std::count_if(queues_.begin(), queues_.end(),
                                                    [](const auto& weak) { return !weak.expired(); }));
}

}  // namespace kolvex_console
