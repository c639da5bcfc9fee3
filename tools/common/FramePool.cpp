#include "FramePool.h"

namespace kolvex_host {

FrameRef::~FrameRef() {
  if (frame_) {
    frame_->pool_.LetGo(*frame_);
  }
}

sarnevo::ipcapture::IFrame* FramePool::AllocateFrame(sarnevo::u32 fourCC, sarnevo::u32 size, const char*) {
  PooledFrame* frame = nullptr;
  {
    const std::lock_guard guard(lock_);
    if (!free_.empty()) {
      // The one given back last: its memory is the likeliest to be in the cache.
      frame = free_.back();
      free_.pop_back();
    } else if (frames_.size() < limit_) {
      free_.reserve(limit_);  // so that giving back never allocates
      frames_.push_back(std::make_unique<PooledFrame>(*this));
      frame = frames_.back().get();
    }
  }
  if (!frame) {
    refused_.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  }
  if (frame->data_.size() < size) {
    frame->data_.resize(size);
  }
  frame->size_ = 0;
  frame->fourCC_ = fourCC;
  frame->holders_.store(1, std::memory_order_relaxed);  // the library
  return frame;
}

void FramePool::ReleaseFrame(sarnevo::ipcapture::IFrame* frame) { LetGo(static_cast<PooledFrame&>(*frame)); }

void FramePool::LetGo(PooledFrame& frame) noexcept {
  if (frame.holders_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    const std::lock_guard guard(lock_);
    free_.push_back(&frame);
  }
}

}  // namespace kolvex_host
