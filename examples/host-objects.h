// What the larger examples share: the camera as a host has it on record, the wanted picture, frames that can be kept.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kolvex/Exports.h"
#include "kolvex/ICaptureIOApi.h"
#include "kolvex/Version.h"

namespace example {

using namespace sarnevo;
using namespace sarnevo::ipcapture;

// The library, loaded until the end of the scope. Without it Create is null.
class Library {
 public:
  explicit Library(const char* file)
      : handle_(dlopen(file ? file : KOLVEX_LIBRARY_NAME, RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_) {
      std::fprintf(stderr, "%s\n", dlerror());
      return;
    }
    create_ = reinterpret_cast<CreateIPCaptureFunction*>(dlsym(handle_, "CreateIPCaptureEx3"));
    delete_ = reinterpret_cast<DeleteIPCaptureFunction*>(dlsym(handle_, "DeleteIPCaptureEx3"));
  }
  ~Library() {
    if (handle_) {
      dlclose(handle_);
    }
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // A driver that goes back through the library's own export. Null without library or memory.
  using Driver = std::unique_ptr<IIPCaptureDriverEx3, DeleteIPCaptureFunction*>;
  Driver Create() const { return Driver(create_ ? create_() : nullptr, delete_); }

 private:
  void* const handle_;
  CreateIPCaptureFunction* create_ = nullptr;
  DeleteIPCaptureFunction* delete_ = nullptr;
};

// One camera and the picture that is wanted of it. The library reads it during Open and StartCapture only.
struct Camera : IIPDriverParams,
                IIPDeviceInfo,
                IIPConnectionInfo,
                IIPVideoParams,
                IIPVideoFormat,
                IIPVideoRate,
                IIPResolution {
  std::string address, group;
  u32 inputs = 0;
  u32 codec = CodecMJPEG;
  u16 width = 640, height = 480;

  IIPDeviceInfo* GetDevice() override { return this; }
  const char* GetModel() override { return "unknown"; }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return inputs; }
  u32 GetOutputCount() override { return 0; }  // knowing of none, the library switches none

  IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetAddress() override { return address.c_str(); }
  u16 GetPort() override { return 80; }
  u32 GetCodec() override { return codec; }
  const char* GetUserName() override { return "admin"; }
  const char* GetPassword() override { return std::getenv("KOLVEX_PASSWORD"); }

  // A real host stores what a capability query has published, and hands it back here.
  const char* GetCustomSetting(u32 index) override {
    switch (index) {
      case SettingCameraGroup:
        return group.c_str();
      case SettingVideoStandard:
        return "1";  // PAL
      case SettingMaxQualityJPEG:
        return "16";
      case SettingMinQualityJPEG:
        return "4";
      default:
        return nullptr;
    }
  }

  IIPVideoFormat* GetFormat() override { return this; }
  IIPResolution* GetResolution() override { return this; }
  u16 GetWidth() override { return width; }
  u16 GetHeight() override { return height; }
  IIPVideoRate* GetRate() override { return this; }
  u16 GetFrameInterval() override { return 40; }  // milliseconds
  u16 GetQuality() override { return 60; }        // percent

  // Each interface has empty slots of its own; where a class implements several, it says what they do.
  void Slot1() override {}
  void Slot2() override {}
  void Slot3() override {}
  void Slot4() override {}
};

// A frame that the host may keep after OnFrame: it has a count, and the library's share goes with ReleaseFrame.
struct Frame final : IFrame, std::enable_shared_from_this<Frame> {
  std::vector<u8> data;
  u32 size = 0, width = 0, height = 0;
  std::shared_ptr<Frame> ofTheLibrary;  // from AllocateFrame until ReleaseFrame

  u8* GetData() override { return data.data(); }
  void SetDataSize(u32 bytes) override { size = bytes; }
  void Finish() override {}
  void SetFourCC(u32) override {}
  void SetWidth(u32 pixels) override { width = pixels; }
  void SetHeight(u32 pixels) override { height = pixels; }
  void SetSizeClass(u32) override {}
};

// Serves all channels of all drivers, on their receive threads.
struct Allocator final : IFrameAllocator {
  IFrame* AllocateFrame(u32, u32 size, const char*) override {
    auto frame = std::make_shared<Frame>();
    frame->data.resize(size);
    frame->ofTheLibrary = frame;
    return frame.get();
  }
  void ReleaseFrame(IFrame* frame) override { static_cast<Frame*>(frame)->ofTheLibrary.reset(); }
};

}  // namespace example
