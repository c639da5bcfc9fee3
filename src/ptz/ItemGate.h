#pragma once

#include <functional>

#include "kolvex/Types.h"
#include "platform/CriticalSection.h"
#include "platform/Event.h"
#include "platform/Thread.h"
#include "platform/Time.h"

namespace sarnevo {

/// Lets a thread's work be ended from outside: the work passes the gate, and who closes the gate waits a
/// moment for it and then interrupts it.
///
/// The moment is what a camera that answers needs: a stop command that is under way must still reach the
/// head, which moves on for good without it.
class ItemGate {
 public:
  /// One piece of work. False when the gate is closed; the work is then not to be begun.
  class Pass {
   public:
    /// @param interrupt  makes the work end soon; is called at most once, by the closing thread, while the
    ///                   pass lives.
    Pass(ItemGate& gate, std::function<void()> interrupt);
    ~Pass();
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    explicit operator bool() const noexcept { return passed_; }

   private:
    ItemGate& gate_;
    const bool passed_;
  };

  void Open() noexcept;
  /// Lets nothing more through.
  void Shut() noexcept;
  /// Shuts, waits for the work under way until @p patience has passed since the gate was shut, and interrupts
  /// it then. It may still run for a moment afterwards. Called by that work itself, it doesn't wait.
  void Close(platform::Milliseconds patience) noexcept;

 private:
  bool Enter(std::function<void()> interrupt);
  void Leave() noexcept;

  platform::CriticalSection lock_;
  // Guarded by lock_.
  bool open_ = false;
  u64 shutAt_ = 0;                 // of the monotonic clock, milliseconds
  platform::ThreadId worker_ = 0;  // inside; 0 for nobody
  std::function<void()> interrupt_;

  platform::Event left_{true, true};  // set while nobody is inside
};

}  // namespace sarnevo
