#include "kolvex/Exports.h"

#include <new>

#include "driver/CKolvexIPCaptureDriver.h"

extern "C" {

sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCapture() {
  try {
    return new sarnevo::CKolvexIPCaptureDriver;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx() __attribute__((alias("CreateIPCapture")));
sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx2() __attribute__((alias("CreateIPCapture")));
sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx3() __attribute__((alias("CreateIPCapture")));

void DeleteIPCapture(sarnevo::ipcapture::IIPCaptureDriver* driver) { delete driver; }

void DeleteIPCaptureEx(sarnevo::ipcapture::IIPCaptureDriver* driver) __attribute__((alias("DeleteIPCapture")));
void DeleteIPCaptureEx2(sarnevo::ipcapture::IIPCaptureDriver* driver) __attribute__((alias("DeleteIPCapture")));
void DeleteIPCaptureEx3(sarnevo::ipcapture::IIPCaptureDriver* driver) __attribute__((alias("DeleteIPCapture")));

}  // extern "C"
