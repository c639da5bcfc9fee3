#pragma once

#include <string>

#include "kolvex/Exports.h"
#include "kolvex/ICaptureIOCallback.h"
#include "support/FakeHost.h"

namespace kolvex_test {

/// Simulated cameras in a process of their own: group 1 at 127.0.0.1, group 2 at 127.0.0.2. Their password is
/// drawn anew, and this process holds it in the clear only while a host has to.
class Cameras {
 public:
  Cameras();
  ~Cameras();
  Cameras(const Cameras&) = delete;
  Cameras& operator=(const Cameras&) = delete;

  /// They are gone, and their ports refuse.
  void SwitchOff();
  /// How often the password, or its Base64 form, stands in the text.
  static std::size_t PasswordsIn(const std::string& text);
  /// The parts of this process's memory in which the password still lies, a line each.
  static std::string MemoryWithPassword();

 private:
  int process_ = 0;
};

/// One copy of the library in use: a driver for each camera, with video, digital I/O and PTZ. Unloads it at the
/// end. What goes wrong fails the test that runs.
class GuestRun : sarnevo::ICaptureIOCallback, sarnevo::ipcapture::ICapabilityObserver {
 public:
  GuestRun(const std::string& path, int flags);
  ~GuestRun() override;

  /// Whether a capability query begins, which leaves it begun.
  bool BeginsQueries();
  /// A capability query from its begin to its end.
  void Query(const char* address, bool isCamera = true);
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
  /// All that the host was told.
  std::string Told() const { return log_.Text(); }

 private:
  struct Driver;

  void OnInputChanged(sarnevo::u32, sarnevo::u32) override { log_.Add("input"); }
  void OnIOFailure() override { log_.Add("I/O failure"); }
  void OnQueryDone() override { log_.Add("query done"); }
  void OnQueryFailed(sarnevo::u32, const char* text) override { log_.Add(std::string("query failed ") + text); }

  template <typename Function>
  Function* Look(const char* name);

  HostLog log_;
  void* library_ = nullptr;
  std::vector<std::unique_ptr<Driver>> drivers_;
};

}  // namespace kolvex_test
