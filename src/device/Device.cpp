#include "device/Device.h"

#include "platform/SecureErase.h"

namespace sarnevo {

Device::~Device() { platform::SecureErase(password_); }

u32 Device::GetNetworkTimeout() noexcept {
  const COptexGuard guard(lock_);
  return networkTimeout_;
}

}  // namespace sarnevo
