#pragma once

#include "platform/SharedMemory.h"

namespace sarnevo::platform {

/// An auto-reset event, not set at first, that threads of several processes share under one name. One Set
/// lets exactly one wait through; a second one before that changes nothing. Any thread may use it.
class SharedEvent {
 public:
  /// Opens the event @p name, or makes it. When the system refuses, IsValid is false, Set does nothing and
  /// Wait returns at once.
  explicit SharedEvent(const char* name) noexcept;

  bool IsValid() const noexcept { return memory_.Data() != nullptr; }
  void Set() noexcept;
  /// Waits without limit.
  void Wait() noexcept;

 private:
  SharedMemory memory_;
};

}  // namespace sarnevo::platform
