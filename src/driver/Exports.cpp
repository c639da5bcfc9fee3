#include "kolvex/Exports.h"

#include <new>

#include "driver/CKolvexIPCaptureDriver.h"
#include "platform/Alias.h"

extern "C" {

sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCapture() {
  try {
    return new sarnevo::CKolvexIPCaptureDriver;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx() KOLVEX_ALIAS_OF(CreateIPCapture);
sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx2() KOLVEX_ALIAS_OF(CreateIPCapture);
sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx3() KOLVEX_ALIAS_OF(CreateIPCapture);

void DeleteIPCapture(sarnevo::ipcapture::IIPCaptureDriver* driver) { delete driver; }

void DeleteIPCaptureEx(sarnevo::ipcapture::IIPCaptureDriver* driver) KOLVEX_ALIAS_OF(DeleteIPCapture);
void DeleteIPCaptureEx2(sarnevo::ipcapture::IIPCaptureDriver* driver) KOLVEX_ALIAS_OF(DeleteIPCapture);
void DeleteIPCaptureEx3(sarnevo::ipcapture::IIPCaptureDriver* driver) KOLVEX_ALIAS_OF(DeleteIPCapture);

}  // extern "C"
