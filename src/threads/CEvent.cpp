#include "threads/CEvent.h"

#include <array>
#include <span>

namespace sarnevo {

i32 CEvent::WaitForAny(CEvent** events, u32 count, u32 timeoutMs) noexcept {
  if (events == nullptr || count > kMaxEvents) {
    return -1;
  }
  std::array<platform::Event*, kMaxEvents> inside;
  for (u32 i = 0; i < count; ++i) {
    inside[i] = events[i] == nullptr ? nullptr : &events[i]->event_;
  }
  return platform::Event::WaitAny(std::span(inside).first(count), TimeoutOf(timeoutMs));
}

}  // namespace sarnevo
