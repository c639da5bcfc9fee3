#include "kolvex/Exports.h"

#include <cstddef>
#include <new>

#include "driver/CKolvexIPCaptureDriver.h"
#include "driver/CapabilityQuery.h"
#include "platform/Alias.h"

namespace {

// Made at the first call and never destroyed: a query that the host never ended still works on it when the
// process ends. In a place of its own, since no failure to get memory may cross into the host.
sarnevo::CapabilityQuery& Query() noexcept {
  alignas(sarnevo::CapabilityQuery) static std::byte place[sizeof(sarnevo::CapabilityQuery)];
  static auto* const query = new (place) sarnevo::CapabilityQuery;
  return *query;
}

}  // namespace

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

sarnevo::u32 InitCapabilityQuery(sarnevo::ipcapture::ICapabilityObserver* observer, sarnevo::u8 isNTSC) {
  return Query().Init(observer, isNTSC != 0) ? 1 : 0;
}

sarnevo::u32 StartCapabilityQuery(const char* address, sarnevo::u16 port, const char* user,
                                  const char* password, sarnevo::ipcapture::IIPCapabilities* capabilities) {
  return Query().Start(address, port, user, password, capabilities) ? 1 : 0;
}

sarnevo::u32 TerminateCapabilityQuery() {
  Query().Terminate();
  return 1;
}

sarnevo::u32 UninitCapabilityQuery() {
  Query().Uninit();
  return 1;
}

}  // extern "C"
