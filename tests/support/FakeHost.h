#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kolvex/ICaptureIOCallback.h"
#include "kolvex/IIPCaptureDriver.h"
#include "kolvex/IIPDriverParams.h"
#include "support/HostLog.h"

/// A recording server for tests: every object that the library asks of its host. Each call becomes a line in
/// the log, and there are hooks where a host might do something of its own: call back, refuse, throw, take long.
namespace kolvex_test {

namespace contract = sarnevo::ipcapture;

/// The settings of a camera of @p group, with a network time-out in milliseconds.
inline std::map<std::uint32_t, std::string> CameraSettings(const std::string& group,
                                                           const std::string& timeout) {
  return {{1, timeout}, {2, group}, {3, "1"}, {4, "16"}, {5, "4"}, {6, "3000"}, {7, "256"}, {8, "256,3000,e"}};
}

/// The parameters of Open. A text that is null is handed out as null.
class FakeParams : public contract::IIPDriverParams,
                   public contract::IIPDeviceInfo,
                   public contract::IIPConnectionInfo {
 public:
  explicit FakeParams(HostLog* log = nullptr) : log_(log) {}

  const char* model = "KX-1";
  std::uint32_t channels = 1;
  std::uint32_t inputs = 0;
  std::uint32_t outputs = 0;
  const char* address = "127.0.0.1";
  std::uint16_t port = 80;
  std::uint32_t codec = sarnevo::CodecMJPEG;
  const char* user = "user";
  const char* password = "secret";
  std::map<std::uint32_t, std::string> settings{{1, "1000"}, {2, "1"}, {3, "1"}};
  bool hasDevice = true;
  bool hasConnection = true;

  contract::IIPDeviceInfo* GetDevice() override { return Say("GetDevice", hasDevice ? this : nullptr); }
  contract::IIPConnectionInfo* GetConnection() override {
    return Say("GetConnection", hasConnection ? this : nullptr);
  }
  const char* GetCustomSetting(std::uint32_t index) override {
    const auto found = settings.find(index);
    handedOut_ = found != settings.end() ? found->second : "";
    return Say(("GetCustomSetting " + std::to_string(index)).c_str(),
               found != settings.end() ? handedOut_.c_str() : nullptr);
  }

  const char* GetModel() override { return Say("GetModel", model); }
  std::uint32_t GetChannelCount() override { return Say("GetChannelCount", channels); }
  std::uint32_t GetInputCount() override { return Say("GetInputCount", inputs); }
  std::uint32_t GetOutputCount() override { return Say("GetOutputCount", outputs); }
  const char* GetAddress() override { return Say("GetAddress", address); }
  std::uint16_t GetPort() override { return Say("GetPort", port); }
  std::uint32_t GetCodec() override { return Say("GetCodec", codec); }
  const char* GetUserName() override { return Say("GetUserName", user); }
  const char* GetPassword() override { return Say("GetPassword", password); }

 private:
  template <typename Value>
  Value Say(const char* name, Value value) {
    if (log_ != nullptr) {
      log_->Add(name);
    }
    return value;
  }

  HostLog* const log_;
  std::string handedOut_;  // one buffer for all settings, as a host may have it
};

/// The parameters of StartCapture.
class FakeVideoParams : public contract::IIPVideoParams,
                        public contract::IIPVideoFormat,
                        public contract::IIPResolution,
                        public contract::IIPVideoRate {
 public:
  explicit FakeVideoParams(std::uint16_t width = 352, std::uint16_t height = 288, std::uint16_t interval = 40,
                           std::uint16_t quality = 60)
      : width_(width), height_(height), interval_(interval), quality_(quality) {}

  bool hasFormat = true;
  bool hasResolution = true;
  bool hasRate = true;
  std::function<void(const char* question)> onAsked;

  contract::IIPVideoFormat* GetFormat() override { return Answer("GetFormat", hasFormat ? this : nullptr); }
  contract::IIPVideoRate* GetRate() override { return Answer("GetRate", hasRate ? this : nullptr); }
  contract::IIPResolution* GetResolution() override {
    return Answer("GetResolution", hasResolution ? this : nullptr);
  }
  std::uint16_t GetWidth() override { return Answer("GetWidth", width_); }
  std::uint16_t GetHeight() override { return Answer("GetHeight", height_); }
  std::uint16_t GetFrameInterval() override { return Answer("GetFrameInterval", interval_); }
  std::uint16_t GetQuality() override { return Answer("GetQuality", quality_); }

 private:
  template <typename Value>
  Value Answer(const char* question, Value value) {
    if (onAsked) {
      onAsked(question);
    }
    return value;
  }

  const std::uint16_t width_, height_, interval_, quality_;
};

/// The four characters of a frame's code.
inline std::string FourCCText(std::uint32_t fourCC) {
  return {static_cast<char>(fourCC), static_cast<char>(fourCC >> 8), static_cast<char>(fourCC >> 16),
          static_cast<char>(fourCC >> 24)};
}

/// A frame's data area has exactly the asked size, so that the sanitizers see a write past its end.
class FakeFrame : public contract::IFrame {
 public:
  FakeFrame(HostLog& log, std::uint32_t size) : data(size), log_(log) {}

  std::vector<std::uint8_t> data;
  std::uint32_t used = 0;

  std::uint8_t* GetData() override {
    log_.Add("GetData");
    return data.data();
  }
  void SetDataSize(std::uint32_t size) override { Note("SetDataSize", used = size); }
  void Finish() override { log_.Add("Finish"); }
  void SetFourCC(std::uint32_t fourCC) override { log_.Add("SetFourCC " + FourCCText(fourCC)); }
  void SetHeight(std::uint32_t height) override { Note("SetHeight", height); }
  void SetWidth(std::uint32_t width) override { Note("SetWidth", width); }
  void SetSizeClass(std::uint32_t sizeClass) override { Note("SetSizeClass", sizeClass); }

 private:
  void Note(const char* name, std::uint32_t value) { log_.Add(name + (" " + std::to_string(value))); }

  HostLog& log_;
};

/// Gives out and takes back frames; a frame that comes back twice or was never given is a line of its own.
class FakeAllocator : public contract::IFrameAllocator {
 public:
  explicit FakeAllocator(HostLog& log) : log_(log) {}

  std::function<void()> onAllocate;
  std::function<void()> onRelease;
  std::atomic<bool> refuses{false};
  /// Frames that the library has now.
  std::size_t Outstanding() const {
    const std::lock_guard guard(lock_);
    return frames_.size();
  }

  contract::IFrame* AllocateFrame(std::uint32_t fourCC, std::uint32_t size, const char* owner) override;
  void ReleaseFrame(contract::IFrame* frame) override;

 private:
  HostLog& log_;
  mutable std::mutex lock_;
  std::map<contract::IFrame*, std::unique_ptr<FakeFrame>> frames_;  // under lock_
};

/// Keeps what the frames held.
class FakeSink : public contract::IFrameSink {
 public:
  explicit FakeSink(HostLog& log, std::string name = "") : log_(log), name_(std::move(name)) {}

  std::function<bool()> onFrame;
  std::function<void()> onNoData;
  std::vector<std::vector<std::uint8_t>> Frames() const {
    const std::lock_guard guard(lock_);
    return frames_;
  }

  bool OnFrame(contract::IFrame* frame) override;
  void OnNoData() override {
    log_.Add("OnNoData" + name_);
    if (onNoData) {
      onNoData();
    }
  }

 private:
  HostLog& log_;
  const std::string name_;
  mutable std::mutex lock_;
  std::vector<std::vector<std::uint8_t>> frames_;  // under lock_
};

class FakeDebugSink : public contract::IDebugInfoSink {
 public:
  explicit FakeDebugSink(HostLog& log) : log_(log) {}
  std::function<void()> onDebugInfo;
  void OnDebugInfo(CDebugInfoIf* info) override {
    log_.Add("OnDebugInfo " + std::to_string(info->GetLevel()) + " " +
             (info->GetText() != nullptr ? info->GetText() : "(null)"));
    if (onDebugInfo) {
      onDebugInfo();
    }
  }

 private:
  HostLog& log_;
};

/// The host's callback object; @p then runs after each line, on the thread of the callback.
class FakeCallback : public sarnevo::ICaptureIOCallback {
 public:
  explicit FakeCallback(HostLog& log, std::function<void()> then = {}) : log_(log), then_(std::move(then)) {}

  void OnInputChanged(std::uint32_t index, std::uint32_t state) override {
    Say("input " + std::to_string(index) + " is " + std::to_string(state));
  }
  void OnIOFailure() override { Say("failure"); }

 private:
  void Say(const std::string& line) {
    log_.Add(line);
    if (then_) {
      then_();
    }
  }

  HostLog& log_;
  const std::function<void()> then_;
};

}  // namespace kolvex_test
