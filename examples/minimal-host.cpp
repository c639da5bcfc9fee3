// The smallest complete host: loads the library, takes ten seconds of MJPEG from one camera and prints a line for each
// frame.
#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "kolvex/Exports.h"
#include "kolvex/Version.h"

using namespace sarnevo;
using namespace sarnevo::ipcapture;

// 1. The camera as the host has it on record. The library reads these objects during Open and StartCapture
// only, and copies what it needs.
struct Camera final : IIPDriverParams, IIPDeviceInfo, IIPConnectionInfo {
  const char* address;
  const char* group;

  Camera(const char* cameraAddress, const char* cameraGroup) : address(cameraAddress), group(cameraGroup) {}

  IIPDeviceInfo* GetDevice() override { return this; }
  const char* GetModel() override { return "unknown"; }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return 0; }
  u32 GetOutputCount() override { return 0; }

  IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetAddress() override { return address; }
  u16 GetPort() override { return 80; }
  u32 GetCodec() override { return CodecMJPEG; }
  const char* GetUserName() override { return "admin"; }
  const char* GetPassword() override { return std::getenv("KOLVEX_PASSWORD"); }

  const char* GetCustomSetting(u32 index) override {
    switch (index) {
      case SettingCameraGroup:
        return group;
      case SettingVideoStandard:
        return "1";  // PAL
      case SettingMaxQualityJPEG:
        return "16";
      case SettingMinQualityJPEG:
        return "4";
      default:
        return nullptr;  // not set
    }
  }

  // Each interface has empty slots of its own; where a class implements several, it says what they do.
  void Slot1() override {}
  void Slot3() override {}
  void Slot4() override {}
};

struct Picture final : IIPVideoParams, IIPVideoFormat, IIPVideoRate, IIPResolution {
  IIPVideoFormat* GetFormat() override { return this; }
  IIPResolution* GetResolution() override { return this; }
  u16 GetWidth() override { return 640; }
  u16 GetHeight() override { return 480; }
  IIPVideoRate* GetRate() override { return this; }
  u16 GetFrameInterval() override { return 40; }  // milliseconds
  u16 GetQuality() override { return 60; }        // percent
  void Slot1() override {}
  void Slot2() override {}
};

// 2. Memory for frames. One frame at a time is enough here: the library gives it back before it asks for the
// next one of the channel.
struct Frame final : IFrame {
  std::vector<u8> data;
  u32 size = 0, width = 0, height = 0;

  u8* GetData() override { return data.data(); }
  void SetDataSize(u32 bytes) override { size = bytes; }
  void Finish() override {}
  void SetFourCC(u32) override {}
  void SetWidth(u32 pixels) override { width = pixels; }
  void SetHeight(u32 pixels) override { height = pixels; }
  void SetSizeClass(u32) override {}
};

struct Allocator final : IFrameAllocator {
  Frame frame;
  IFrame* AllocateFrame(u32, u32 size, const char*) override {
    frame.data.resize(size);
    return &frame;
  }
  void ReleaseFrame(IFrame*) override {}
};

// 3. The receiver of the frames. Runs on the library's receive thread: be quick, never wait here.
struct Sink final : IFrameSink {
  std::atomic<int> frames = 0;

  bool OnFrame(IFrame* frame) override {
    ++frames;
    const auto& jpeg = static_cast<const Frame&>(*frame);
    std::printf("%ux%u, %u bytes\n", jpeg.width, jpeg.height, jpeg.size);
    return true;
  }
  void OnNoData() override { std::printf("no data\n"); }
};

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fprintf(
        stderr,
        "usage: minimal-host ADDRESS GROUP [LIBRARY]\n"
        "  ADDRESS  of the camera, dotted; GROUP 1 or 2: its firmware line (kolvex-host query finds it out)\n"
        "  LIBRARY  the file to load (%s)\n"
        "The password of the user \"admin\" comes from KOLVEX_PASSWORD.\n"
        "Exit codes: 0 frames came, 1 wrong usage, 2 no library, 3 refused by it, 4 no frame came\n",
        KOLVEX_LIBRARY_NAME);
    return 1;
  }
  // 4. The library, by its exports.
  void* const library = dlopen(argc == 4 ? argv[3] : KOLVEX_LIBRARY_NAME, RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 2;
  }
  auto* const create = reinterpret_cast<CreateIPCaptureFunction*>(dlsym(library, "CreateIPCaptureEx3"));
  auto* const destroy = reinterpret_cast<DeleteIPCaptureFunction*>(dlsym(library, "DeleteIPCaptureEx3"));

  // 5. The life of a driver. Everything handed in lives until Close has returned.
  Camera camera(argv[1], argv[2]);
  Picture picture;
  Allocator allocator;
  Sink sink;
  IIPCaptureDriverEx3* const driver = create();
  bool started = false;
  if (driver->Open(nullptr, &allocator, &camera)) {
    IIPVideoCapture* const video = driver->GetVideoCapture();
    started = video->StartCapture(0, &sink, &picture);
    std::this_thread::sleep_for(std::chrono::seconds(10));
    video->StopCapture(0);
  }
  driver->Close();
  destroy(driver);
  dlclose(library);
  return !started ? 3 : sink.frames == 0 ? 4 : 0;
}
