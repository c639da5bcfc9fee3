// What the larger examples share: the library, a camera as a host has it on record, the query that fills such a record,
// frames that can be kept.
#pragma once

#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kolvex/Exports.h"
#include "kolvex/Version.h"

namespace example {

using namespace sarnevo;
using namespace sarnevo::ipcapture;

inline constexpr const char* kUser = "admin";
inline const char* Password() { return std::getenv("KOLVEX_PASSWORD"); }

// One numbered setting: a query fills it, and Open gets it back. A real host stores the texts.
struct Setting final : IIPSettingEntry {
  std::string text;

  void SetValue(const char* value) override { text = value; }
  void SetName(const char*) override {}
  void SetAttributeA(u32) override {}
  void SetAttributeB(u32) override {}
};

// One camera and the picture that is wanted of it. The library reads it during Open and StartCapture only.
struct Camera : IIPDriverParams,
                IIPDeviceInfo,
                IIPConnectionInfo,
                IIPVideoParams,
                IIPVideoFormat,
                IIPVideoRate,
                IIPResolution {
  std::string address;
  std::string model = "unknown";
  std::map<u32, Setting> settings;  // by number
  u32 inputs = 0;
  u32 codec = CodecMJPEG;
  u16 width = 640, height = 480;

  IIPDeviceInfo* GetDevice() override { return this; }
  const char* GetModel() override { return model.c_str(); }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return inputs; }
  u32 GetOutputCount() override { return 0; }  // knowing of none, the library switches none

  IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetAddress() override { return address.c_str(); }
  u16 GetPort() override { return 80; }
  u32 GetCodec() override { return codec; }
  const char* GetUserName() override { return kUser; }
  const char* GetPassword() override { return Password(); }

  const char* GetCustomSetting(u32 index) override {
    const auto found = settings.find(index);
    return found == settings.end() ? nullptr : found->second.text.c_str();
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

// Takes what a query finds out about a camera into its record. Called on the query's thread. What isn't wanted gets
// null.
class Answer final : public IIPCapabilities, public ICapabilityObserver {
 public:
  explicit Answer(Camera& camera) : camera_(camera) {}

  // False when the query failed, or took longer.
  bool Await(std::chrono::seconds limit) {
    std::future<bool> ended = ended_.get_future();
    return ended.wait_for(limit) == std::future_status::ready && ended.get();
  }

  void SetCapability(u32 id, u32 value) override {
    if (id == CapabilityInputs) {
      camera_.inputs = value;
    }
  }
  void SetModelName(const char* model) override { camera_.model = model; }
  IIPTextField* GetConnectionField(u32) override { return nullptr; }
  IIPSettingEntry* GetSettingEntry(u32 index) override { return &camera_.settings[index]; }
  IIPResolutionEntry* AddResolutionEntry() override { return nullptr; }
  IIPValueList* GetValueList(u32) override { return nullptr; }

  void OnQueryDone() override { ended_.set_value(true); }
  void OnQueryFailed(u32 level, const char* text) override {
    std::fprintf(stderr, "%s: %s%s\n", camera_.address.c_str(), text,
                 level == QueryFailureLogin ? " (user name or password)" : "");
    ended_.set_value(false);
  }

 private:
  Camera& camera_;
  std::promise<bool> ended_;
};

// The library, loaded until the end of the scope. Without it Query fails and Create is null.
class Library {
 public:
  explicit Library(const char* file)
      : handle_(dlopen(file ? file : KOLVEX_LIBRARY_NAME, RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_) {
      std::fprintf(stderr, "%s\n", dlerror());
      return;
    }
    Find(create_, "CreateIPCaptureEx3");
    Find(delete_, "DeleteIPCaptureEx3");
    Find(init_, "InitCapabilityQuery");
    Find(start_, "StartCapabilityQuery");
    Find(uninit_, "UninitCapabilityQuery");
  }
  ~Library() {
    if (handle_) {
      dlclose(handle_);
    }
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool IsLoaded() const { return handle_ != nullptr; }

  // A driver that goes back through the library's own export. Null without library or memory.
  using Driver = std::unique_ptr<IIPCaptureDriverEx3, DeleteIPCaptureFunction*>;
  Driver Create() const { return Driver(create_ ? create_() : nullptr, delete_); }

  // Finds out what the camera at its address is. One query at a time in a process. A host that has stored the record
  // needs none.
  bool Query(Camera& camera) const {
    Answer answer(camera);
    const char* const password = Password();
    if (!init_ || init_(&answer, 0) == 0) {  // 0: PAL
      return false;
    }
    const bool done = start_(camera.address.c_str(), camera.GetPort(), kUser, password, &answer) != 0 &&
                      answer.Await(std::chrono::seconds(30));
    uninit_();  // nothing calls the answer after this
    return done;
  }

 private:
  template <typename Function>
  void Find(Function*& function, const char* name) {
    function = reinterpret_cast<Function*>(dlsym(handle_, name));
  }

  void* const handle_;
  CreateIPCaptureFunction* create_ = nullptr;
  DeleteIPCaptureFunction* delete_ = nullptr;
  InitCapabilityQueryFunction* init_ = nullptr;
  StartCapabilityQueryFunction* start_ = nullptr;
  UninitCapabilityQueryFunction* uninit_ = nullptr;
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
