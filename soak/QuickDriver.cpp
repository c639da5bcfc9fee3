// The library with one export more: a driver whose channels don't pause. The real pauses of seconds would make
// thousands of streams last for hours; everything else is the same code.
#include <new>

#include "driver/CKolvexIPCaptureDriver.h"
#include "kolvex/Exports.h"

extern "C" KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateQuickCapture();

sarnevo::ipcapture::IIPCaptureDriverEx3* CreateQuickCapture() {
  using sarnevo::platform::Milliseconds;
  auto* const driver = static_cast<sarnevo::CKolvexIPCaptureDriver*>(CreateIPCaptureEx3());
  if (driver != nullptr) {
    driver->SetChannelTiming({.streamPass = Milliseconds{5},
                              .pause = Milliseconds{5},
                              .receiveTimeout = Milliseconds{2000},
                              .startingReceiveTimeout = Milliseconds{2000},
                              .packetTimeout = Milliseconds{1000},
                              .farewell = Milliseconds{2000}});
  }
  return driver;
}

#ifdef KOLVEX_COVERAGE
// Counts are written at the end of a process; that of a sweep's case leaves without one.
extern "C" void __gcov_dump();
extern "C" KOLVEX_EXPORT void DumpCoverage();

void DumpCoverage() { __gcov_dump(); }
#endif
