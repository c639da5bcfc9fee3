#pragma once

#include "kolvex/ICapabilityObserver.h"
#include "kolvex/ICaptureIOApi.h"
#include "kolvex/IIPCapabilities.h"
#include "kolvex/IIPCaptureDriver.h"
#include "kolvex/IIPPTZDriver.h"

/// Marks what the library exports; empty for hosts.
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
/// CreateIPCapture by another name.
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx();
/// CreateIPCapture by another name.
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx2();
/// CreateIPCapture by another name.
KOLVEX_EXPORT sarnevo::ipcapture::IIPCaptureDriverEx3* CreateIPCaptureEx3();

/// Closes and frees a driver, with the time limits of IIPCaptureDriver::Close. Null is ignored. Any thread may call, from
/// inside a callback of the driver too, but none while another one is inside an operation of the driver. The four names are
/// one function.
KOLVEX_EXPORT void DeleteIPCapture(sarnevo::ipcapture::IIPCaptureDriver* driver);
/// DeleteIPCapture by another name.
KOLVEX_EXPORT void DeleteIPCaptureEx(sarnevo::ipcapture::IIPCaptureDriver* driver);
/// DeleteIPCapture by another name.
KOLVEX_EXPORT void DeleteIPCaptureEx2(sarnevo::ipcapture::IIPCaptureDriver* driver);
/// DeleteIPCapture by another name.
KOLVEX_EXPORT void DeleteIPCaptureEx3(sarnevo::ipcapture::IIPCaptureDriver* driver);

/// Capability query: what is the camera at an address, what can it do, and which numbered settings does it
/// need? One query at a time in a process; the four functions are called from one thread at a time.
///
/// Begins a query. 1, or 0 when one has begun already and wasn't ended.
/// @param observer  hears how each query ends
/// @param isNTSC    not 0: the host's video standard is NTSC, else PAL
KOLVEX_EXPORT sarnevo::u32 InitCapabilityQuery(sarnevo::ipcapture::ICapabilityObserver* observer,
                                               sarnevo::u8 isNTSC);

/// Finds out the camera's group on the calling thread, which takes as long as two requests may (60 s at the most), and
/// reads the rest on a thread of its own. 1: the query runs, and the observer will hear of its end. 0: no query was
/// started. The observer has then heard why when the address answers like no camera of the family, and has heard
/// nothing when a query still runs or there is no memory or no thread.
/// @param address       dotted IPv4 address or name; null texts count as empty
/// @param port          HTTP port; 0 means 80
/// @param user          empty for none
/// @param password      empty for none
/// @param capabilities  gets the answer; not owned
KOLVEX_EXPORT sarnevo::u32 StartCapabilityQuery(const char* address, sarnevo::u16 port, const char* user,
                                                const char* password,
                                                sarnevo::ipcapture::IIPCapabilities* capabilities);

/// Asks a running query to end, without waiting, and shortens none of its requests. Always 1.
KOLVEX_EXPORT sarnevo::u32 TerminateCapabilityQuery();

/// Ends the query and frees what it holds, also after it has ended by itself. Returns within about 10
/// seconds, however the camera behaves; from then on neither the observer nor the capabilities object is
/// called. Always 1.
KOLVEX_EXPORT sarnevo::u32 UninitCapabilityQuery();

}  // extern "C"

namespace sarnevo::ipcapture {
// For the casts of what dlsym gives.
using CreateIPCaptureFunction = IIPCaptureDriverEx3*();             ///< of CreateIPCapture
using DeleteIPCaptureFunction = void(IIPCaptureDriver*);            ///< of DeleteIPCapture
using InitCapabilityQueryFunction = u32(ICapabilityObserver*, u8);  ///< of InitCapabilityQuery
using StartCapabilityQueryFunction = u32(const char*, u16, const char*, const char*,
                                         IIPCapabilities*);  ///< of StartCapabilityQuery
using TerminateCapabilityQueryFunction = u32();              ///< of TerminateCapabilityQuery
using UninitCapabilityQueryFunction = u32();                 ///< of UninitCapabilityQuery
}  // namespace sarnevo::ipcapture
