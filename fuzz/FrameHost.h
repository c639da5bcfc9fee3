#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "FuzzTarget.h"
#include "JpegCheck.h"
#include "kolvex/IFrame.h"
#include "kolvex/IFrameAllocator.h"
#include "kolvex/IFrameSink.h"
#include "kolvex/Types.h"

namespace kolvex_fuzz {

/// A recording server that looks at each frame as closely as it can without knowing what the camera sent, and
/// answers as an input says.
class FrameHost : public sarnevo::ipcapture::IFrameAllocator, public sarnevo::ipcapture::IFrameSink {
 public:
  using u32 = sarnevo::u32;

  /// What the host does with the next frame, by the bits of a byte: gives none, gives one without room, throws in
  /// OnFrame, refuses it there, throws where it should give one, throws where it takes one back.
  enum Answer : std::uint8_t {
    NoFrame = 1,
    NoRoom = 2,
    Throws = 4,
    Refuses = 8,
    ThrowsAtFirst = 16,
    ThrowsAtLast = 32,
  };

  /// A frame as OnFrame saw it.
  struct Seen {
    u32 code = 0;
    u32 width = 0;
    u32 height = 0;
    std::vector<std::uint8_t> data;
  };

  explicit FrameHost(bool group1) : group1_(group1) {}

  void AnswerWith(std::uint8_t answer) { answer_ = answer; }
  /// The frame that has come since the last call. One packet never brings two.
  std::optional<Seen> Take() {
    Check(!out_, "every frame comes back");
    return std::exchange(seen_, std::nullopt);
  }

  sarnevo::ipcapture::IFrame* AllocateFrame(u32 code, u32 size, const char* owner) override {
    Check(!out_ && owner != nullptr && size > 0, "one frame at a time, with its owner's name");
    if ((answer_ & ThrowsAtFirst) != 0) {
      throw std::exception();
    }
    if ((answer_ & NoFrame) != 0) {
      return nullptr;
    }
    out_ = std::make_unique<Frame>(code, size, (answer_ & NoRoom) == 0);
    return out_.get();
  }
  void ReleaseFrame(sarnevo::ipcapture::IFrame* frame) override {
    Check(out_ && frame == out_.get(), "a frame comes back once");
    out_.reset();
    if ((answer_ & ThrowsAtLast) != 0) {
      throw std::exception();
    }
  }
  bool OnFrame(sarnevo::ipcapture::IFrame* frame) override {
    Check(out_ && frame == out_.get() && !seen_, "the frame is the one that was given out");
    seen_ = out_->Finished(group1_);
    if ((answer_ & Throws) != 0) {
      throw std::exception();
    }
    return (answer_ & Refuses) == 0;
  }
  void OnNoData() override {}

 private:
  class Frame : public sarnevo::ipcapture::IFrame {
   public:
    Frame(u32 code, u32 capacity, bool hasRoom) : code_(code), hasRoom_(hasRoom), data_(capacity) {}

    std::uint8_t* GetData() override { return hasRoom_ ? data_.data() : nullptr; }
    void SetDataSize(u32 size) override {
      Check(size <= data_.size(), "what is used fits what was asked for");
      used_ = size;
    }
    void Finish() override { finished_ = true; }
    void SetFourCC(u32 code) override { Check(code == code_, "the code is the one that was asked for"); }
    void SetHeight(u32 height) override { height_ = height; }
    void SetWidth(u32 width) override { width_ = width; }
    void SetSizeClass(u32 sizeClass) override {
      const u32 largeFrom = code_ == sarnevo::FrameFourCCJPEG ? 400 : 381;
      Check(sizeClass == (width_ >= largeFrom ? 4U : 2U), "the size class follows the width");
    }

    Seen Finished(bool group1) {
      Check(hasRoom_ && finished_ && used_ > 0, "a delivered frame is finished and holds something");
      data_.resize(used_);
      if (code_ == sarnevo::FrameFourCCJPEG) {
        Check(!JpegCheck::PartsOf(data_, group1, width_, height_).scan.empty(), "a JPEG has a scan");
      } else if (code_ == sarnevo::FrameFourCCMPEG4Key) {
        Check(used_ > 4 && data_[0] == 0 && data_[1] == 0 && data_[2] == 1 && data_[3] == 0xB0,
              "a key frame begins with its headers");
        Check(width_ > 0 && width_ < 8192 && height_ > 0 && height_ < 8192, "a key frame has a size");
      } else {
        Check(code_ == sarnevo::FrameFourCCMPEG4Inter, "there are three kinds of frames");
      }
      return {code_, width_, height_, data_};
    }

   private:
    const u32 code_;
    const bool hasRoom_;
    std::vector<std::uint8_t>
        data_;  // of exactly the asked size, so that the sanitizer sees a write past its end
    u32 used_ = 0;
    u32 width_ = 0;
    u32 height_ = 0;
    bool finished_ = false;
  };

  const bool group1_;
  std::uint8_t answer_ = 0;
  std::unique_ptr<Frame> out_;
  std::optional<Seen> seen_;
};

}  // namespace kolvex_fuzz
