#include <cstddef>
#include <new>

#include "driver/CapabilityQuery.h"
#include "kolvex/Exports.h"

namespace {

// Made at the first call and never destroyed: a query that the host never ended still works on it when the
// process ends. In a place of its own, since no failure to get memory may cross into the host.
sarnevo::CapabilityQuery& Query() noexcept {
  alignas(sarnevo::CapabilityQuery) static std::byte place[sizeof(sarnevo::CapabilityQuery)];
  static auto* const query = new (place) sarnevo::CapabilityQuery;
  return *query;
}

}  // namespace

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
