#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "../../examples/host-objects.h"
#include "kolvex/Exports.h"

namespace kolvex_bench {

/// The shared library, loaded as a host loads it. Never unloaded.
class DriverLibrary {
 public:
  /// Throws std::runtime_error when it can't be loaded.
  explicit DriverLibrary(const std::string& file);

  sarnevo::ipcapture::CreateIPCaptureFunction* create = nullptr;
  sarnevo::ipcapture::DeleteIPCaptureFunction* destroy = nullptr;
};

/// A host's objects for one camera of group 1 with one channel: one frame that is used again and again, and a sink
/// for a derived class to count in.
class HostCamera : public example::Camera,
                   public sarnevo::ipcapture::IFrameAllocator,
                   public sarnevo::ipcapture::IFrameSink,
                   public sarnevo::ipcapture::IFrame {
 public:
  using u8 = sarnevo::u8;
  using u16 = sarnevo::u16;
  using u32 = sarnevo::u32;

  explicit HostCamera(std::string cameraAddress, u32 cameraCodec = sarnevo::CodecMJPEG) {
    address = std::move(cameraAddress);
    codec = cameraCodec;
    width = 352;
    height = 288;
  }

  /// Opens the driver and starts the channel. Throws std::runtime_error when the driver refuses.
  void Start(const DriverLibrary& library);
  /// Returns when nothing of the channel runs any more.
  bool Stop() { return driver_->GetVideoCapture()->StopCapture(0); }

  const char* GetCustomSetting(u32 index) override;
  const char* GetUserName() override { return "user"; }
  const char* GetPassword() override { return "secret"; }

  sarnevo::ipcapture::IFrame* AllocateFrame(u32 fourCC, u32 size, const char* owner) override;
  void ReleaseFrame(sarnevo::ipcapture::IFrame* /*frame*/) override {}
  void OnNoData() override {}

  u8* GetData() override { return data_.data(); }
  void SetDataSize(u32 size) override { size_ = size; }
  void Finish() override {}
  void SetFourCC(u32 /*fourCC*/) override {}
  void SetHeight(u32 /*height*/) override {}
  void SetWidth(u32 /*width*/) override {}
  void SetSizeClass(u32 /*sizeClass*/) override {}

  // Slots that several of the interfaces have and none of them uses.
  void Slot1() override {}
  void Slot2() override {}
  void Slot3() override {}
  void Slot4() override {}

 protected:
  // The frame in hand; receive thread only.
  const u8* FrameData() const { return data_.data(); }
  std::size_t FrameSize() const { return size_; }

 private:
  std::vector<u8> data_;
  std::size_t size_ = 0;
  sarnevo::ipcapture::IIPCaptureDriverEx3* driver_ = nullptr;
};

}  // namespace kolvex_bench
