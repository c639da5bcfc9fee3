#include <dlfcn.h>

#include <stdexcept>

#include "io/Pollers.h"
#include "kolvex/Exports.h"
#include "kolvex/ICaptureIOApi.h"

namespace kolvex_bench {

namespace {

namespace contract = sarnevo::ipcapture;
using sarnevo::u16;
using sarnevo::u32;

// A host's objects for one camera with two inputs.
class HostCamera : public contract::IIPDriverParams,
                   public contract::IIPDeviceInfo,
                   public contract::IIPConnectionInfo,
                   public sarnevo::ICaptureIOCallback {
 public:
  HostCamera(std::string address, const PollPlan& plan)
      : address_(std::move(address)), port_(plan.port), outputs_(static_cast<u32>(plan.outputs)) {}

  contract::IIPDeviceInfo* GetDevice() override { return this; }
  contract::IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetCustomSetting(u32 index) override {
    static constexpr const char* kSettings[] = {"",   "5000",           "1", "1", "10", "1", "4000",
                                                "64", "64,1000,4000,e", ""};
    return index < std::size(kSettings) ? kSettings[index] : nullptr;
  }
  const char* GetModel() override { return "bench"; }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return 2; }
  u32 GetOutputCount() override { return outputs_; }
  const char* GetAddress() override { return address_.c_str(); }
  u16 GetPort() override { return port_; }
  u32 GetCodec() override { return sarnevo::CodecMJPEG; }
  const char* GetUserName() override { return "user"; }
  const char* GetPassword() override { return "secret"; }

  void OnInputChanged(u32 /*index*/, u32 /*state*/) override {}
  void OnIOFailure() override {}

  void Slot1() override {}
  void Slot3() override {}
  void Slot4() override {}

 private:
  const std::string address_;
  const u16 port_;
  const u32 outputs_;
};

class LibraryPoller : public Poller {
 public:
  explicit LibraryPoller(const PollPlan& plan) : plan_(plan), handle_(dlopen(plan.library.c_str(), RTLD_NOW)) {
    if (handle_ == nullptr) {
      throw std::runtime_error(dlerror());
    }
    create_ = reinterpret_cast<contract::CreateIPCaptureFunction*>(dlsym(handle_, "CreateIPCaptureEx3"));
  }

  // The drivers end with the process.
  void Add(int index) override {
    auto* const camera = new HostCamera(PolledAddress(index), plan_);
    auto* const driver = create_();
    if (!driver->Open(nullptr, nullptr, camera) || !driver->GetCaptureIO()->SetCallback(camera) ||
        !driver->GetCaptureIO()->Start()) {
      throw std::runtime_error("the driver refused a camera");
    }
  }

 private:
  const PollPlan plan_;
  void* const handle_;
  contract::CreateIPCaptureFunction* create_ = nullptr;
};

}  // namespace

std::unique_ptr<Poller> MakeLibraryPoller(const PollPlan& plan) {
  return std::make_unique<LibraryPoller>(plan);
}

}  // namespace kolvex_bench
