#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "driver/CKolvexIPCaptureDriver.h"
#include "ptz/CPTZHandler.h"
#include "support/CgiCamera.h"
#include "support/FakeHost.h"
#include "support/MakeOwned.h"
#include "support/TempFolder.h"

namespace kolvex_test {

/// Waits for @p lines lines and gives all there are, which are then forgotten.
inline std::string Take(HostLog& log, std::size_t lines = 0) {
  log.WaitFor("", lines);
  std::string text = log.Text();
  log.Clear();
  return text;
}

/// A group 1 camera as the PTZ side sees it: says its serial protocol and takes what is written to its serial port.
class SerialCamera {
 public:
  using Connection = CgiCamera::Connection;
  /// Answers a request, given as its line in @c requests.
  using Answer = CgiCamera::Answer;

  static Answer WithBody(const std::string& body) {
    return [body](Connection& connection, auto&) { connection.Send("HTTP/1.1 200 OK\r\n\r\n" + body); };
  }

  explicit SerialCamera(const std::string& protocol)
      : camera_(Noting(WithBody("serial_device=" + protocol + "\r\n"))) {}

  std::uint16_t Port() const { return camera_.Port(); }
  void SetAnswer(Answer answer) { camera_.SetAnswer(Noting(std::move(answer))); }

  HostLog requests;  ///< what was written to the serial port; of other requests the path

 private:
  // A request without "root:pass" isn't answered.
  Answer Noting(Answer answer) {
    return [this, answer = std::move(answer)](Connection& connection, const std::string& head) {
      if (!head.starts_with("GET /") || head.find("\r\nAuthorization: Basic cm9vdDpwYXNz\r\n") == head.npos) {
        return;
      }
      const std::string write = "/serial.cgi?action=apply&port=2&write=";
      const std::string request =
          Target(head).starts_with(write) ? Target(head).substr(write.size()) : Target(head);
      requests.Add(request);
      answer(connection, request);
    };
  }

  CgiCamera camera_;
};

/// A driver with its host, a camera, and the PTZ side between them.
struct PtzFixture {
  explicit PtzFixture(const std::string& protocol, sarnevo::u32 channels = 1,
                      const std::string& hardwareAddress = "00:11:22:aB", const char* group = "1")
      : camera(protocol) {
    params.port = camera.Port();
    params.channels = channels;
    params.user = "root";
    params.password = "pass";
    params.settings = {{2, group}, {3, "1"}, {9, hardwareAddress}};
    EXPECT_TRUE(driver->Open(&sink, nullptr, &params));
    messages.Clear();
    handler = MakeOwned<sarnevo::CPTZHandler>(driver.get(), channels, folder.Path());
  }

  /// The channel's object, with the question for the protocol forgotten.
  sarnevo::IIPPTZApiEx& Control(sarnevo::u32 channel = 0) {
    sarnevo::IIPPTZApiEx* const control = handler->GetPTZApiEx(channel);
    if (control == nullptr) {
      throw std::runtime_error("no control");
    }
    camera.requests.Clear();
    return *control;
  }

  /// The driver's own PTZ side, in place of the handler. It keeps its file beside the program.
  sarnevo::IIPPTZDriverEx* DriversOwn() {
    handler.reset();
    return driver->GetPTZDriverEx();
  }

  /// The line of a failed request in @c messages.
  std::string NotSent(const std::string& operation, const std::string& path) const {
    return "OnDebugInfo 1 sarnevo::CGroup1PTZComm::" + operation +
           ": cannot send HTTP message to 127.0.0.1:" + std::to_string(camera.Port()) + ", message=" + path +
           ", http status=0\n";
  }

  SerialCamera camera;
  TempFolder folder;
  HostLog messages;
  FakeDebugSink sink{messages};
  FakeParams params;
  std::unique_ptr<sarnevo::CKolvexIPCaptureDriver> driver = std::make_unique<sarnevo::CKolvexIPCaptureDriver>();
  std::shared_ptr<sarnevo::CPTZHandler> handler;
};

/// The name of the current position, or the result in its place.
inline std::string Current(sarnevo::IIPPTZApiEx& control) {
  char name[64];
  const sarnevo::i32 result = control.GetCurrentPreposition(name, sizeof(name));
  return result == 1 ? name : std::to_string(result);
}

/// All names, a "," after each.
inline std::string Names(sarnevo::IIPPTZApiEx& control) {
  std::string names;
  char name[64];
  for (sarnevo::u32 i = 0; control.GetPrepositionName(i, name, sizeof(name)) == 1; ++i) {
    names += std::string(name) + ",";
  }
  return names;
}

}  // namespace kolvex_test
