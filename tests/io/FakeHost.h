#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "kolvex/ICaptureIOCallback.h"
#include "kolvex/IIPDriverParams.h"
#include "platform/Event.h"

namespace sarnevo {

/// A camera as the host has it on record.
struct FakeParams : ipcapture::IIPDriverParams, ipcapture::IIPDeviceInfo, ipcapture::IIPConnectionInfo {
  FakeParams(u32 inputCount, u32 outputCount) : inputs(inputCount), outputs(outputCount) {}

  u32 inputs;
  u32 outputs;
  u16 port = 80;
  std::map<u32, std::string> settings{
      {SettingNetworkTimeout, "3000"}, {SettingCameraGroup, "1"}, {SettingVideoStandard, "1"}};

  IIPDeviceInfo* GetDevice() override { return this; }
  IIPConnectionInfo* GetConnection() override { return this; }
  const char* GetCustomSetting(u32 index) override {
    const auto found = settings.find(index);
    return found == settings.end() ? nullptr : found->second.c_str();
  }
  const char* GetModel() override { return "Model"; }
  u32 GetChannelCount() override { return 1; }
  u32 GetInputCount() override { return inputs; }
  u32 GetOutputCount() override { return outputs; }
  const char* GetAddress() override { return "127.0.0.1"; }
  u16 GetPort() override { return port; }
  u32 GetCodec() override { return CodecMJPEG; }
  const char* GetUserName() override { return "user"; }
  const char* GetPassword() override { return "secret"; }
};

/// What happens to the I/O, one line per event, in the order of happening.
class Transcript {
 public:
  void Write(const std::string& line) {
    const std::lock_guard guard(lock_);
    text_ += line + '\n';
    written_.Set();
  }
  std::string Text() const {
    const std::lock_guard guard(lock_);
    return text_;
  }
  void Clear() {
    const std::lock_guard guard(lock_);
    text_.clear();
  }
  /// Waits until the text is @p expected, or gives the text as it is after ten seconds.
  std::string Await(const std::string& expected) {
    while (Text() != expected &&
           written_.Wait(platform::Milliseconds{10'000}) == platform::WaitResult::Signalled) {
    }
    return Text();
  }

 private:
  mutable std::mutex lock_;
  std::string text_;
  platform::Event written_;
};

/// The host's callback object; @p then runs after each line, on the thread of the callback.
class FakeCallback : public ICaptureIOCallback {
 public:
  explicit FakeCallback(Transcript& transcript, std::function<void()> then = {})
      : transcript_(transcript), then_(std::move(then)) {}

  void OnInputChanged(u32 index, u32 state) override {
    transcript_.Write("input " + std::to_string(index) + " is " + std::to_string(state));
    if (then_) {
      then_();
    }
  }
  void OnIOFailure() override {
    transcript_.Write("failure");
    if (then_) {
      then_();
    }
  }

 private:
  Transcript& transcript_;
  const std::function<void()> then_;
};

}  // namespace sarnevo
