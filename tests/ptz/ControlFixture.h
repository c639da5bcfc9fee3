#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "ptz/CPTZHandler.h"
#include "ptz/SerialCamera.h"
#include "support/FakeHost.h"
#include "support/TempFolder.h"

namespace kolvex_test {

/// A driver with its host, a camera, and the PTZ side between them.
struct ControlFixture {
  explicit ControlFixture(const std::string& protocol, sarnevo::u32 channels = 1,
                          const std::string& hardwareAddress = "00:11:22:aB", const char* group = "1")
      : camera(protocol), channelCount(channels) {
    params.port = camera.Port();
    params.settings = {{2, group}, {3, "1"}, {9, hardwareAddress}};
    if (!driver.Open(&sink, nullptr, &params)) {
      throw std::runtime_error("the driver doesn't open");
    }
    log.Clear();
    Restart();
  }

  /// As a host does: everything is built anew, the camera and the file stay.
  void Restart() { handler = std::make_unique<sarnevo::CPTZHandler>(&driver, channelCount, folder.Path()); }

  /// The channel's object, with the question for the protocol forgotten.
  sarnevo::IIPPTZApiEx& Control(sarnevo::u32 channel = 0) {
    sarnevo::IIPPTZApiEx* const control = handler->GetPTZApiEx(channel);
    if (control == nullptr) {
      throw std::runtime_error("no control");
    }
    camera.Requests().Take();
    return *control;
  }

  /// The messages so far, which are then forgotten.
  std::string Messages() {
    std::string text = log.Text();
    log.Clear();
    return text;
  }

  SerialCamera camera;
  TempFolder folder;
  HostLog log;
  FakeDebugSink sink{log};
  FakeParams params;
  sarnevo::CKolvexIPCaptureDriver driver;
  const sarnevo::u32 channelCount;
  std::unique_ptr<sarnevo::CPTZHandler> handler;
};

/// The name of the current position, or the result in its place.
inline std::string Current(sarnevo::IIPPTZApiEx& control) {
  char name[64];
  const sarnevo::i32 result = control.GetCurrentPreposition(name, sizeof(name));
  return result == 1 ? name : std::to_string(result);
}

/// All names, a "," behind each.
inline std::string Names(sarnevo::IIPPTZApiEx& control) {
  std::string names;
  char name[64];
  for (sarnevo::u32 i = 0; control.GetPrepositionName(i, name, sizeof(name)) == 1; ++i) {
    names += std::string(name) + ",";
  }
  return names;
}

}  // namespace kolvex_test
