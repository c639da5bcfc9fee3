#pragma once

#include <array>
#include <string>

#include "soak/Host.h"
#include "support/HostLog.h"

namespace kolvex_test {

/// Simulated cameras in a process of their own: group 1 at 127.0.1.1, group 2 at 127.0.2.1. This process holds
/// their password in the clear only while a host has to.
class Cameras {
 public:
  Cameras();
  ~Cameras();
  Cameras(const Cameras&) = delete;
  Cameras& operator=(const Cameras&) = delete;

  /// They are gone, and their ports refuse.
  void SwitchOff();
  /// Whether the password, or its Base64 form, stands in the text.
  static bool IsPasswordIn(const std::string& text);
  /// The parts of this process's memory in which the password still lies, a line each.
  static std::string MemoryWithPassword();

 private:
  int process_ = 0;
};

/// One copy of the library in use: a driver for each camera, with video, digital I/O and PTZ. Unloads it at the
/// end. What goes wrong fails the test that runs.
class GuestRun {
 public:
  GuestRun(const std::string& path, int flags) : library_(path.c_str(), flags) {}
  ~GuestRun();

  /// Whether a capability query begins, which leaves it begun.
  bool BeginsQueries() { return library_.init(&hosts_[0], 0) != 0; }
  /// A capability query from its begin to its end. True when it told the whole camera.
  bool Query(const char* address);
  /// Opens the drivers and moves a head, stores a position and forgets it.
  void Open();
  /// Opens, and starts video, inputs and outputs.
  void StartAll();
  /// Waits for some frames and an input of each camera.
  void AwaitAll();
  /// Has the head told to store a position, which its camera no longer does.
  void FailToStore();
  /// Ends and deletes the drivers.
  void EndAll();
  /// All texts that the host was told.
  std::string Told() const { return log_.Text(); }

 private:
  struct Host final : kolvex_soak::Host {
    Host(const char* cameraGroup, HostLog& hostLog)
        : kolvex_soak::Host(cameraGroup, 1, std::string("guest-") + cameraGroup), log(hostLog) {}

    const char* GetUserName() override;
    const char* GetPassword() override;
    void OnDebugInfo(CDebugInfoIf* info) override {
      log.Add(info->GetText() != nullptr ? info->GetText() : "");
    }
    void OnQueryFailed(sarnevo::u32, const char* text) override {
      log.Add(text);
      queryEnd = 2;
    }

    HostLog& log;
    sarnevo::ipcapture::IIPCaptureDriverEx3* driver = nullptr;
  };

  HostLog log_;
  const kolvex_soak::Library library_;
  std::array<Host, 2> hosts_{Host("1", log_), Host("2", log_)};
};

}  // namespace kolvex_test
