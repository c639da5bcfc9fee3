#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "../../examples/host-objects.h"
#include "kolvex/Exports.h"
#include "kolvex/ICaptureIOApi.h"
#include "kolvex/IIPPTZDriver.h"
#include "support/Eventually.h"
#include "support/Failures.h"

namespace kolvex_test {

using namespace sarnevo;
using namespace sarnevo::ipcapture;

/// The driver library, loaded at run time: the quick one of QuickDriver.cpp or, with the real pauses, the one
/// that hosts get.
struct Library {
  explicit Library(const char* path, int flags = RTLD_NOW | RTLD_LOCAL) : handle(dlopen(path, flags)) {
    if (handle == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(2);
    }
  }
  template <typename Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle, name));
  }

  void* const handle;
  CreateIPCaptureFunction* const quick = Find<CreateIPCaptureFunction>("CreateQuickCapture");
  CreateIPCaptureFunction* const create = quick ? quick : Find<CreateIPCaptureFunction>("CreateIPCaptureEx3");
  DeleteIPCaptureFunction* const destroy = Find<DeleteIPCaptureFunction>("DeleteIPCaptureEx3");
  InitCapabilityQueryFunction* const init = Find<InitCapabilityQueryFunction>("InitCapabilityQuery");
  StartCapabilityQueryFunction* const start = Find<StartCapabilityQueryFunction>("StartCapabilityQuery");
  TerminateCapabilityQueryFunction* const terminate =
      Find<TerminateCapabilityQueryFunction>("TerminateCapabilityQuery");
  UninitCapabilityQueryFunction* const uninit = Find<UninitCapabilityQueryFunction>("UninitCapabilityQuery");
};

/// A whole host with one camera, as group @p group at 127.0.@p group.@p number. It keeps what the checks need,
/// takes no memory in its callbacks where it can be helped, and that which it takes is its own.
struct Host : example::Camera,
              IFrameAllocator,
              IFrameSink,
              IDebugInfoSink,
              ICaptureIOCallback,
              ICapabilityObserver,
              IIPCapabilities,
              IIPTextField,
              IIPSettingEntry,
              IIPResolutionEntry,
              IIPValueList {
  Host(const char* cameraGroup, int number, const std::string& mac) : group(cameraGroup), hardwareAddress(mac) {
    address = "127.0." + group + "." + std::to_string(number);
    inputs = 2;
    codec = group == "1" ? CodecMJPEG : CodecMPEG4;
    width = 160;
    height = 120;
  }

  const std::string group;
  const std::string hardwareAddress;       // names the file of positions
  std::atomic<u64> frames{0}, changes{0};  // the latter of inputs
  std::atomic<int> lent{0}, wrongInputs{0};
  std::atomic<int> queryEnd{0};  // 1 done, 2 failed
  std::atomic<u64> told{0};      // a sum over all that a query has said

  // Long enough for a block of memory of its own each.
  const char* GetModel() override { return "a model with a name that is rather long"; }
  u32 GetChannelCount() override { return 16; }
  u32 GetOutputCount() override { return 2; }
  const char* GetUserName() override { return "an operator of the night shift"; }
  const char* GetPassword() override { return "the password of that operator"; }
  const char* GetCustomSetting(u32 index) override {
    const char* const settings[] = {nullptr,
                                    "5000",
                                    group.c_str(),
                                    "1",
                                    "16",
                                    "4",
                                    "3000",
                                    "256",
                                    "256,512,768,1000,1500,2000,3000,e",
                                    hardwareAddress.c_str()};
    return index < std::size(settings) ? settings[index] : nullptr;
  }

  u16 GetQuality() override { return 10; }  // percent

  struct Frame final : IFrame {
    std::vector<u8> data;
    u8* GetData() override { return data.data(); }
    void SetDataSize(u32) override {}
    void Finish() override {}
    void SetFourCC(u32) override {}
    void SetWidth(u32) override {}
    void SetHeight(u32) override {}
    void SetSizeClass(u32) override {}
  };
  IFrame* AllocateFrame(u32, u32 size, const char*) override {
    const Side host(false);
    auto* const frame = new Frame;
    frame->data.resize(size);
    ++lent;
    return frame;
  }
  void ReleaseFrame(IFrame* frame) override {
    const Side host(false);
    --lent;
    delete frame;
  }
  bool OnFrame(IFrame*) override { return ++frames != 0; }
  void OnNoData() override {}
  void OnDebugInfo(CDebugInfoIf*) override {}

  // The simulated camera's inputs are low.
  void OnInputChanged(u32, u32 state) override {
    ++changes;
    wrongInputs += state == IOStateLow ? 0 : 1;
  }
  void OnIOFailure() override {}

  void OnQueryDone() override { queryEnd = 1; }
  void OnQueryFailed(u32, const char*) override { queryEnd = 2; }
  void SetCapability(u32 id, u32 value) override { told += 31 * id + value; }
  void SetModelName(const char* model) override { SetText(model); }
  IIPTextField* GetConnectionField(u32) override { return this; }
  IIPSettingEntry* GetSettingEntry(u32) override { return this; }
  IIPResolutionEntry* AddResolutionEntry() override { return this; }
  IIPValueList* GetValueList(u32) override { return this; }
  void SetText(const char* text) override {
    for (; *text != '\0'; ++text) {
      told += static_cast<u8>(*text);
    }
  }
  void SetValue(const char* text) override { SetText(text); }
  void SetAttributeA(u32) override {}
  void SetName(const char* name) override { SetText(name); }
  void SetAttributeB(u32) override {}
  void SetResolution(const char*, u32 width, u32 height, u32 interval) override {
    told += width + height + interval;
  }
  void SetDefault(u32 value) override { told += value; }
  void AddValue(u32 value) override { told += value; }

  void Slot1() override {}
  void Slot2() override {}
  void Slot3() override {}
  void Slot4() override {}
  void Slot5() override {}
  void Slot7() override {}
};

}  // namespace kolvex_test
