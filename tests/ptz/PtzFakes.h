#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "kolvex/IIPDeviceParams.h"
#include "kolvex/IIPParams.h"
#include "ptz/SerialCamera.h"

namespace kolvex_test {

/// The camera's connection data, and the messages that come up to it.
struct FakeDevice : IIPDeviceParams {
  explicit FakeDevice(sarnevo::u16 cameraPort = 9) : port(cameraPort) {}

  std::string GetDeviceModel() override { return "model"; }
  std::string GetAddress() override { return "127.0.0.1"; }
  sarnevo::u16 GetPort() override { return port; }
  std::string GetUserName() override { return "root"; }
  std::string GetPassword() override { return "pass"; }
  [[gnu::format(printf, 3, 4)]] void DebugMessage(sarnevo::u32 level, const char* format, ...) override {
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    messages.Add(std::to_string(level) + " " + text);
  }

  const sarnevo::u16 port;
  Lines messages;
};

/// A channel's lens state; the test may set it while no item is on its way.
struct FakeLens : IIPParams {
  sarnevo::u32 GetChannel() override { return 0; }
  sarnevo::u8 GetIrisManual() override { return iris; }
  void SetIrisManual(sarnevo::u8 value) override { iris = value; }
  sarnevo::u8 GetFocusManual() override { return focus; }
  void SetFocusManual(sarnevo::u8 value) override { focus = value; }

  std::atomic<sarnevo::u8> iris{0};
  std::atomic<sarnevo::u8> focus{0};
};

}  // namespace kolvex_test
