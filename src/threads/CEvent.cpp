#include "threads/CEvent.h"

#include <array>
#include <span>

#include "threads/Timeout.h"

namespace sarnevo {

CEvent::CEvent(u8 initialState, u8 manualReset, void* /*securityAttributes*/) noexcept
    : event_(initialState != 0, manualReset != 0) {}

CEvent::~CEvent() = default;

bool CEvent::Wait(u32 timeoutMs) noexcept {
  return event_.Wait(TimeoutOf(timeoutMs)) == platform::WaitResult::Signalled;
}

bool CEvent::Set() noexcept { return event_.Set(); }

bool CEvent::Reset() noexcept { return event_.Reset(); }

i32 CEvent::WaitForAny(CEvent** events, u32 count, u32 timeoutMs) noexcept {
  if (events == nullptr || count > kMaxEvents) {
    return -1;
  }
  std::array<platform::Event*, kMaxEvents> handles;
  for (u32 i = 0; i < count; ++i) {
    handles[i] = events[i] == nullptr ? nullptr : &events[i]->event_;
  }
  return platform::Event::WaitAny(std::span(handles).first(count), TimeoutOf(timeoutMs));
}

}  // namespace sarnevo
