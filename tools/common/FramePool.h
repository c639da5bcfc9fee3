#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "kolvex/IFrameAllocator.h"

namespace kolvex_host {

class FramePool;

/// One compressed frame of the host. The library fills it through IFrame; whoever works on it afterwards
/// holds it through a FrameRef, and the last one to let go gives it back to its pool.
class PooledFrame final : public sarnevo::ipcapture::IFrame {
 public:
  explicit PooledFrame(FramePool& pool) : pool_(pool) {}

  sarnevo::u8* GetData() override { return data_.data(); }
  void SetDataSize(sarnevo::u32 size) override { size_ = size; }
  void Finish() override {}
  void SetFourCC(sarnevo::u32 fourCC) override { fourCC_ = fourCC; }
  void SetHeight(sarnevo::u32 height) override { height_ = height; }
  void SetWidth(sarnevo::u32 width) override { width_ = width; }
  void SetSizeClass(sarnevo::u32 sizeClass) override { sizeClass_ = sizeClass; }

  std::span<const sarnevo::u8> Bytes() const { return {data_.data(), size_}; }
  sarnevo::u32 FourCC() const { return fourCC_; }
  sarnevo::u32 Width() const { return width_; }
  sarnevo::u32 Height() const { return height_; }
  /// Decodable without any frame before it: a JPEG picture or an MPEG-4 key frame.
  bool IsKey() const { return fourCC_ != sarnevo::FrameFourCCMPEG4Inter; }

 private:
  friend class FramePool;
  friend class FrameRef;

  FramePool& pool_;
  // Kept from use to use, so that a stream allocates only until it has seen its largest frame.
  std::vector<sarnevo::u8> data_;
  sarnevo::u32 size_ = 0;
  sarnevo::u32 fourCC_ = 0;
  sarnevo::u32 width_ = 0;
  sarnevo::u32 height_ = 0;
  sarnevo::u32 sizeClass_ = 0;
  // The receive thread and the writer let go of a frame without a lock; the last one must see all of it.
  std::atomic<int> holders_{0};
};

/// One holder of a frame.
class FrameRef {
 public:
  FrameRef() = default;
  explicit FrameRef(PooledFrame& frame) : frame_(&frame) {
    frame.holders_.fetch_add(1, std::memory_order_relaxed);
  }
  FrameRef(FrameRef&& other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
  FrameRef& operator=(FrameRef&& other) noexcept {
    std::swap(frame_, other.frame_);
    return *this;
  }
  ~FrameRef();

  const PooledFrame* operator->() const { return frame_; }
  const PooledFrame& operator*() const { return *frame_; }
  explicit operator bool() const { return frame_ != nullptr; }

 private:
  PooledFrame* frame_ = nullptr;
};

/// The frames of one stream. Has an upper limit, which is also the limit of everything after it: when the
/// writer is so slow that all frames are in use, the library gets none and drops pictures, as it
/// does for any host without memory. A recording server must never grow without end because a disk is slow.
///
/// Any thread. Outlives its frames' holders.
class FramePool final : public sarnevo::ipcapture::IFrameAllocator {
 public:
  explicit FramePool(std::size_t limit) : limit_(limit) {}

  sarnevo::ipcapture::IFrame* AllocateFrame(sarnevo::u32 fourCC, sarnevo::u32 size, const char* owner) override;
  /// The library lets go of a frame; the writer may still hold it.
  void ReleaseFrame(sarnevo::ipcapture::IFrame* frame) override;

  /// How often there was no frame to give.
  sarnevo::u64 Refused() const { return refused_.load(std::memory_order_relaxed); }

 private:
  friend class FrameRef;
  void LetGo(PooledFrame& frame) noexcept;

  const std::size_t limit_;
  std::mutex lock_;
  std::vector<std::unique_ptr<PooledFrame>> frames_;  // guarded by lock_
  std::vector<PooledFrame*> free_;                    // guarded by lock_
  std::atomic<sarnevo::u64> refused_{0};
};

}  // namespace kolvex_host
