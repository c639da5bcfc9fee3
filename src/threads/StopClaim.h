#pragma once

#include <utility>

namespace sarnevo {

/// The announcement that a thread is about to wait for the threads of an object. Two threads that would wait for each
/// other see it and don't: a host may end one object from inside a callback of another.
///
/// A member of the object. The owner is what the objects that end together have in common, for comparison only.
class StopClaim {
 public:
  explicit StopClaim(const void* owner) noexcept : owner_(owner) {}
  StopClaim(const StopClaim&) = delete;
  StopClaim& operator=(const StopClaim&) = delete;

  /// False, and nothing is claimed, when the calling thread works for another object that is claimed itself. Lasts
  /// until Drop; taking it twice is like taking it once. One thread at a time takes it.
  bool Take() noexcept;
  void Drop() noexcept;
  /// The calling thread works for this object.
  bool IsWorkedFor() const noexcept;

  // Whether the calling thread works for any object, for one that is claimed, for one of this owner. A thread that was let
  // go works for none.
  static bool WorksForAny() noexcept;
  static bool WorksForTaken() noexcept;
  static bool WorksFor(const void* owner) noexcept;

  /// While it lives, the calling thread works for the object of @p claim, which lives as long.
  class Scope {
   public:
    explicit Scope(const StopClaim& claim) noexcept : outer_(std::exchange(workedFor, &claim)) {}
    ~Scope() { workedFor = outer_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const StopClaim* const outer_;
  };

 private:
  static const StopClaim* WorkedFor() noexcept;

  static thread_local const StopClaim* workedFor;

  const void* const owner_;
  bool taken_ = false;  // under the lock of all claims
};

}  // namespace sarnevo
