// The road of a stream's packets to the host: an input chooses codec, layout, losses, frame ends, payloads
// and what the host answers.
#include <memory>
#include <set>
#include <vector>

#include "FuzzTarget.h"
#include "video/FrameAssembly.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using namespace sarnevo;

class Frame : public ipcapture::IFrame {
 public:
  Frame(u32 code, u32 capacity, bool withData) : code_(code), data_(capacity), withData_(withData) {}

  u8* GetData() override { return withData_ ? data_.data() : nullptr; }
  void SetDataSize(u32 size) override {
    Check(size <= data_.size(), "what is used fits what was asked for");
    used_ = size;
  }
  void Finish() override { finished_ = true; }
  void SetFourCC(u32 code) override { Check(code == code_, "the code is the one that was asked for"); }
  void SetHeight(u32) override {}
  void SetWidth(u32 width) override { width_ = width; }
  void SetSizeClass(u32 sizeClass) override {
    const u32 largeFrom = code_ == FrameFourCCJPEG ? 400 : 381;
    Check(sizeClass == (width_ >= largeFrom ? 4U : 2U), "the size class follows the width");
  }

  void CheckDelivered() const {
    Check(finished_ && used_ > 0, "a delivered frame is finished and holds something");
    if (code_ == FrameFourCCJPEG) {
      Check(used_ > 605 && data_[0] == 0xFF && data_[1] == 0xD8, "a JPEG begins with its start of image");
    } else if (code_ == FrameFourCCMPEG4Key) {
      Check(data_[0] == 0 && data_[1] == 0 && data_[2] == 1 && data_[3] == 0xB0, "a key frame has its headers");
    }
  }

 private:
  const u32 code_;
  std::vector<u8> data_;  // of exactly the asked size, so that the sanitizer sees a write behind it
  const bool withData_;
  u32 used_ = 0;
  u32 width_ = 0;
  bool finished_ = false;
};

// Refuses by the bits of a byte of the input.
class Host : public ipcapture::IFrameAllocator, public ipcapture::IFrameSink {
 public:
  explicit Host(u8 refusals) : refusals_(refusals) {}
  ~Host() override { Check(out_.empty(), "every frame comes back"); }

  ipcapture::IFrame* AllocateFrame(u32 code, u32 size, const char*) override {
    if (Refuses(1)) {
      return nullptr;
    }
    auto* const frame = new Frame(code, size, !Refuses(2));
    out_.insert(frame);
    return frame;
  }
  void ReleaseFrame(ipcapture::IFrame* frame) override {
    Check(out_.erase(frame) == 1, "a frame comes back once");
    delete static_cast<Frame*>(frame);
  }
  bool OnFrame(ipcapture::IFrame* frame) override {
    static_cast<Frame*>(frame)->CheckDelivered();
    if (Refuses(4)) {
      throw 1;
    }
    return !Refuses(8);
  }
  void OnNoData() override {}

 private:
  bool Refuses(unsigned bit) { return (refusals_ & bit) != 0 && ++calls_ % 3 == 0; }

  const u8 refusals_;
  unsigned calls_ = 0;
  std::set<ipcapture::IFrame*> out_;
};

}  // namespace

FUZZ_TARGET(FrameAssembly) {
  kolvex_fuzz::Reader reader(input);
  const u8 setting = reader.Byte();
  Host host(reader.Byte());
  Activity activity;
  FrameAssembly assembly({.allocator = &host, .sink = &host, .driver = nullptr},
                         (setting & 1) != 0 ? CodecMJPEG : CodecMPEG4,
                         (setting & 2) != 0 ? JpegLayout::Group1 : JpegLayout::Group2, activity);
  std::vector<u8> payload;
  for (int packets = 0; !reader.IsEmpty() && packets < 4096; ++packets) {
    const u8 how = reader.Byte();
    if ((how & 0x80) != 0) {
      assembly.Resynchronise();
    }
    const Bytes part = reader.Take(reader.Byte());
    // A short input reaches the limit of a frame by packets of many times its bytes.
    payload.assign(part.begin(), part.end());
    payload.resize(part.size() * ((how & 0x40) != 0 ? 64 : 1));
    assembly.Add(payload, (how & 1) != 0);
  }
}
