#include "video/Activity.h"

#include <cstdint>

namespace sarnevo {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10'000;

}  // namespace

void Activity::TouchActivity() noexcept {
  const u64 now = clock_();
  const COptexGuard guard(activityLock_);
  lastActivity_ = now;
}

bool Activity::IsActive(platform::Milliseconds timeout) noexcept {
  const u64 now = clock_();
  const COptexGuard guard(activityLock_);
  return static_cast<std::int64_t>(now - lastActivity_) / kTicksPerMillisecond <= timeout.count();
}

}  // namespace sarnevo
