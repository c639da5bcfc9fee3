#pragma once

#include "kolvex/IIPCaptureDriver.h"

#if defined(KOLVEX_BUILDING_LIBRARY)
#define KOLVEX_EXPORT __attribute__((visibility("default")))
#else
#define KOLVEX_EXPORT
#endif

/// The library's entry points, under plain names. A host that loads the library at run time looks them
/// up by these names; the function types below serve for the casts.
extern "C" {

/// A new driver, or null when there is no memory. Contacts no camera. The four names are one function;
/// the pointer serves as each interface of the IIPCaptureDriver family.
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCapture();
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx();
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx2();
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx3();

/// Closes and frees a driver. Null is ignored. The four names are one function.
KOLVEX_EXPORT void DeleteIPCapture(sarnevo::ipcapture::IIPCaptureDriver* driver);
KOLVEX_EXPORT void DeleteIPCaptureEx(sarnevo::ipcapture::IIPCaptureDriver* driver);
KOLVEX_EXPORT void DeleteIPCaptureEx2(sarnevo::ipcapture::IIPCaptureDriver* driver);
KOLVEX_EXPORT void DeleteIPCaptureEx3(sarnevo::ipcapture::IIPCaptureDriver* driver);

}  // extern "C"

namespace sarnevo::ipcapture {
using CreateIPCaptureFunction = IIPCaptureDriverEx3*();
using DeleteIPCaptureFunction = void(IIPCaptureDriver*);
}  // namespace sarnevo::ipcapture
