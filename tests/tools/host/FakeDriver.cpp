// A driver library with known frames, for tests of the sample host: what the host must make of them is then
// known to the byte.
//
// The device model is the script. "refuse" makes Open fail, "deaf" StartCapture. Otherwise it is a list of
// words, one frame each: "key" and "inter" are MPEG-4 frames of known bytes, anything else is a JPEG picture
// in a colour that the address's last digit chooses, with the word's number as its frame counter. After the
// last one OnNoData comes once, and then nothing more. Calls are written to the file named by FAKE_DRIVER_LOG.
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <jpeglib.h>

#include "kolvex/Exports.h"
#include "simcam/FrameCounter.h"

namespace {

using namespace sarnevo;
using namespace sarnevo::ipcapture;

void Log(const std::string& line) {
  static std::mutex lock;
  const std::lock_guard guard(lock);
  if (const char* const path = std::getenv("FAKE_DRIVER_LOG")) {
    std::ofstream(path, std::ios::app) << line << '\n';
  }
}

std::string OrEmpty(const char* text) { return text ? text : ""; }

/// One colour all over, and the counter in its place.
std::vector<u8> MakeJpeg(unsigned width, unsigned height, char digit, u32 counter) {
  const u8 colour[3] = {static_cast<u8>(digit == '1' ? 200 : 40), static_cast<u8>(digit == '2' ? 200 : 40),
                        static_cast<u8>(digit == '3' ? 200 : 40)};
  std::vector<u8> pixels(std::size_t{3} * width * height);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels[i] = colour[i % 3];
  }
  if (const auto strip = simcam::LayOutCounterStrip(width, height)) {
    for (unsigned y = 0; y < 2 * strip->cell; ++y) {
      for (unsigned x = 0; x < simcam::CounterStrip::kColumns * strip->cell; ++x) {
        const unsigned bit = 39 - (y / strip->cell * simcam::CounterStrip::kColumns + x / strip->cell);
        const bool white = (simcam::CounterCells(counter) >> bit & 1U) != 0;
        std::memset(&pixels[3 * ((strip->top + y) * std::size_t{width} + x)], white ? 255 : 0, 3);
      }
    }
  }

  jpeg_compress_struct compress{};
  jpeg_error_mgr errors{};
  compress.err = jpeg_std_error(&errors);
  jpeg_create_compress(&compress);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&compress, &out, &size);
  compress.image_width = width;
  compress.image_height = height;
  compress.input_components = 3;
  compress.in_color_space = JCS_RGB;
  jpeg_set_defaults(&compress);
  jpeg_start_compress(&compress, TRUE);
  while (compress.next_scanline < height) {
    JSAMPROW row = &pixels[std::size_t{3} * width * compress.next_scanline];
    jpeg_write_scanlines(&compress, &row, 1);
  }
  jpeg_finish_compress(&compress);
  std::vector<u8> jpeg(out, out + size);
  jpeg_destroy_compress(&compress);
  std::free(out);
  return jpeg;
}

class FakeDriver final : public IIPCaptureDriverEx3, private IIPVideoCaptureEx {
 public:
  FakeDriver() { Log("create"); }
  ~FakeDriver() override {
    Close();
    Log("delete");
  }

  bool Open(IDebugInfoSink*, IFrameAllocator* allocator, IIPDriverParams* params) override {
    allocator_ = allocator;
    script_ = params->GetDevice()->GetModel();
    IIPConnectionInfo& connection = *params->GetConnection();
    address_ = connection.GetAddress();
    std::string line = "open " + address_ + ":" + std::to_string(connection.GetPort()) + " codec " +
                       std::to_string(connection.GetCodec()) + " login " + OrEmpty(connection.GetUserName()) +
                       "/" + OrEmpty(connection.GetPassword());
    for (u32 index = 1; index <= 9; ++index) {
      const char* const setting = params->GetCustomSetting(index);
      line += std::string(" ") + (setting ? setting : "-");
    }
    Log(line);
    return script_ != "refuse";
  }
  void Close() override {
    if (!closed_) {
      closed_ = true;
      StopCapture(0);
      Log("close");
    }
  }
  IIPVideoCapture* GetVideoCapture() override { return this; }
  ICaptureIOApi* GetCaptureIO() override { return nullptr; }
  void* GetOptionalA() override { return nullptr; }
  IIPPTZDriver* GetPTZDriver() override { return nullptr; }
  void* GetOptionalB() override { return nullptr; }
  IIPVideoCaptureEx* GetVideoCaptureEx() override { return this; }
  IIPPTZDriverEx* GetPTZDriverEx() override { return nullptr; }

 private:
  u32 GetChannelCount() override { return 1; }
  bool StartCapture(u32 channel, IFrameSink* sink, IIPVideoParams* params) override {
    const u16 interval = params->GetRate()->GetFrameInterval();
    const u16 width = params->GetFormat()->GetResolution()->GetWidth();
    const u16 height = params->GetFormat()->GetResolution()->GetHeight();
    const u16 quality = params->GetRate()->GetQuality();
    Log("start " + std::to_string(channel) + " " + std::to_string(width) + "x" + std::to_string(height) +
        " interval " + std::to_string(interval) + " quality " + std::to_string(quality));
    if (script_ == "deaf") {
      return false;
    }
    thread_ = std::thread([this, sink, width, height] { Play(*sink, width, height); });
    return true;
  }
  bool StopCapture(u32) override {
    if (thread_.joinable()) {
      thread_.join();
      Log("stop");
      return true;
    }
    return false;
  }
  bool ChangeFormat(u32, IIPResolution*, u32) override { return false; }
  u32 Reserved5() override { return 0; }
  bool GetChannelStatus(u32, u32*, u32*, char*, u32) override { return false; }
  bool Reserved7(u32, u32, u32) override { return false; }
  bool Reserved8(u32, u32, u32) override { return false; }
  bool Reserved9(u32) override { return false; }
  bool Reserved10(u32) override { return false; }

  void Play(IFrameSink& sink, u32 width, u32 height) {
    std::istringstream words(script_);
    for (std::string word; words >> word;) {
      if (word == "key") {
        Deliver(sink, FrameFourCCMPEG4Key, {0, 0, 1, 0xB0, 'k', 'e', 'y'}, width, height);
      } else if (word == "inter") {
        Deliver(sink, FrameFourCCMPEG4Inter, {0, 0, 1, 0xB6, 'i'}, width, height);
      } else {
        Deliver(
            sink, FrameFourCCJPEG,
            MakeJpeg(width, height, address_.back(), static_cast<u32>(std::strtoul(word.c_str(), nullptr, 10))),
            width, height);
      }
    }
    sink.OnNoData();
  }

  void Deliver(IFrameSink& sink, u32 fourCC, const std::vector<u8>& bytes, u32 width, u32 height) {
    IFrame* const frame = allocator_->AllocateFrame(fourCC, static_cast<u32>(bytes.size()), "");
    if (!frame) {
      Log("no frame");
      return;
    }
    std::memcpy(frame->GetData(), bytes.data(), bytes.size());
    frame->SetDataSize(static_cast<u32>(bytes.size()));
    frame->SetFourCC(fourCC);
    frame->SetWidth(width);
    frame->SetHeight(height);
    frame->Finish();
    sink.OnFrame(frame);
    allocator_->ReleaseFrame(frame);
  }

  IFrameAllocator* allocator_ = nullptr;
  std::string script_;
  std::string address_;
  std::thread thread_;
  bool closed_ = false;
};

}  // namespace

extern "C" {
IIPCaptureDriverEx3* CreateIPCaptureEx3() { return new FakeDriver; }
void DeleteIPCaptureEx3(IIPCaptureDriver* driver) { delete driver; }
}
