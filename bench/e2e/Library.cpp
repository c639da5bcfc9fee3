#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "e2e/Receivers.h"
#include "kolvex/Exports.h"

namespace kolvex_bench {

namespace {

namespace contract = sarnevo::ipcapture;
using sarnevo::u16;
using sarnevo::u32;
using sarnevo::u8;

struct Library {
  Library() : handle(dlopen(KOLVEX_LIBRARY, RTLD_NOW)) {
    if (handle == nullptr) {
      throw std::runtime_error(dlerror());
    }
    create = reinterpret_cast<contract::CreateIPCaptureFunction*>(dlsym(handle, "CreateIPCaptureEx3"));
    destroy = reinterpret_cast<contract::DeleteIPCaptureFunction*>(dlsym(handle, "DeleteIPCaptureEx3"));
  }

  void* const handle;
  contract::CreateIPCaptureFunction* create = nullptr;
  contract::DeleteIPCaptureFunction* destroy = nullptr;
};

// A host's objects for one camera: one frame that is used again and again, and a sink that counts.
class HostCamera : public contract::IIPDriverParams,
                   public contract::IIPDeviceInfo,
                   public contract::IIPConnectionInfo,
                   public contract::IIPVideoParams,
                   public contract::IIPVideoFormat,
                   public contract::IIPResolution,
                   public contract::IIPVideoRate,
                   public contract::IFrameAllocator,
                   public contract::IFrameSink,
                   public contract::IFrame {
 public:
  HostCamera(const Library& library, const Plan& plan, int index)
      : address_(CameraAddress(index)),
        codec_(CodecOf(plan, index)),
        library_(library),
        driver_(library.create()) {
    if (!driver_->Open(nullptr, this, this) || !driver_->GetVideoCapture()->StartCapture(0, this, this)) {
      throw std::runtime_error("the driver refused " + address_);
    }
  }
  ~HostCamera() override { library_.destroy(driver_); }

  std::uint64_t Frames() const { return frames_.load(std::memory_order_relaxed); }

  contract::IIPDeviceInfo* GetDevice() override { return this; }
  contract::IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetCustomSetting(u32 index) override {
    static constexpr const char* kSettings[] = {"",   "5000",           "1", "1", "10", "1", "4000",
                                                "64", "64,1000,4000,e", ""};
    return index < std::size(kSettings) ? kSettings[index] : nullptr;
  }
  const char* GetModel() override { return "bench"; }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return 0; }
  u32 GetOutputCount() override { return 0; }
  const char* GetAddress() override { return address_.c_str(); }
  u16 GetPort() override { return 80; }
  u32 GetCodec() override { return codec_; }
  const char* GetUserName() override { return "user"; }
  const char* GetPassword() override { return "secret"; }

  contract::IIPVideoFormat* GetFormat() override { return this; }
  contract::IIPVideoRate* GetRate() override { return this; }
  contract::IIPResolution* GetResolution() override { return this; }
  u16 GetWidth() override { return 352; }
  u16 GetHeight() override { return 288; }
  u16 GetFrameInterval() override { return 40; }
  u16 GetQuality() override { return 60; }

  contract::IFrame* AllocateFrame(u32 /*fourCC*/, u32 size, const char* /*owner*/) override {
    if (data_.size() < size) {
      data_.resize(size);
    }
    return this;
  }
  void ReleaseFrame(contract::IFrame* /*frame*/) override {}
  bool OnFrame(contract::IFrame* /*frame*/) override {
    frames_.fetch_add(1, std::memory_order_relaxed);
    return true;
  }
  void OnNoData() override {}

  u8* GetData() override { return data_.data(); }
  void SetDataSize(u32 /*size*/) override {}
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

 private:
  const std::string address_;
  const u32 codec_;
  const Library& library_;
  std::vector<u8> data_;  // receive thread only
  std::atomic<std::uint64_t> frames_{0};
  contract::IIPCaptureDriverEx3* const driver_;
};

}  // namespace

Measurement RunLibrary(const Plan& plan, const SentCounts& sent, bool counting) {
  // Left behind for the process's end: to stop the channels one by one would take longer than to measure them.
  const Library& library = *new Library;
  auto& cameras = *new std::vector<std::unique_ptr<HostCamera>>;
  for (int i = 0; i < plan.streams; ++i) {
    cameras.push_back(std::make_unique<HostCamera>(library, plan, i));
  }
  const auto complete = [&] {
    std::uint64_t all = 0;
    for (const auto& camera : cameras) {
      all += camera->Frames();
    }
    return all;
  };
  const auto isUp = [&] {
    for (const auto& camera : cameras) {
      if (camera->Frames() < 5) {
        return false;
      }
    }
    return true;
  };
  return Measure(plan, sent, counting, complete, isUp);
}

}  // namespace kolvex_bench
