#include "io/CIOBase.h"

#include <new>
#include <utility>

#include "device/Device.h"
#include "threads/HostCall.h"

namespace sarnevo {

namespace {

constexpr u8 kTickFirst = 1;

u32 Usable(u32 count) { return count <= CIOBase::kMaxPorts ? count : 0; }

// True when @p index is one of @p count and had another state.
template <typename States>
bool Remember(States& states, u32 count, u32 index, u32 state) {
  return index < Usable(count) && std::exchange(states[index], state) != state;
}

}  // namespace

// Makes Start and Stop the work of one thread at a time. A thread of the object itself, inside a callback,
// never waits here: whoever holds the lock may be waiting for this very thread. Keeps the object, since the host may
// end it in a callback meanwhile.
class CIOBase::OwnerGuard {
 public:
  explicit OwnerGuard(CIOBase& io) noexcept : io_(io.shared_from_this()) {
    if (io.IsOwnThread()) {
      held_ = io.ownerLock_.TryEnter();
    } else {
      io.ownerLock_.Enter();
    }
  }
  ~OwnerGuard() {
    if (held_) {
      io_->ownerLock_.Leave();
    }
  }
  OwnerGuard(const OwnerGuard&) = delete;
  OwnerGuard& operator=(const OwnerGuard&) = delete;
  explicit operator bool() const noexcept { return held_; }

 private:
  const std::shared_ptr<CIOBase> io_;
  bool held_ = true;
};

CIOBase::CIOBase(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs)
    : driver_(driver),
      stopTimeout_(stopTimeoutMs),
      outputHandler_(stopTimeoutMs),
      inputThread_(pollIntervalMs) {
  outputHandler_.target = this;
  outputHandler_.method = &CIOBase::ApplyOutput;
  inputThread_.target = this;
  inputThread_.method = &CIOBase::PollInputs;
}

CIOBase::~CIOBase() = default;

bool CIOBase::SetCallback(ICaptureIOCallback* callback) {
  if (callback == nullptr) {
    return false;
  }
  callback_.store(callback, std::memory_order_release);
  return true;
}

bool CIOBase::Start() try {
  if (driver_->GetInputCount() > kMaxPorts || driver_->GetOutputCount() > kMaxPorts) {
    return false;
  }
  const OwnerGuard owner(*this);
  if (!owner || ended_) {
    return false;  // ended, or another thread is starting or stopping it
  }
  if (!outputHandler_.IsAlive() && !inputThread_.IsAlive()) {
    stopMissed_.store(false, std::memory_order_relaxed);  // it was for threads that have ended
  }
  outputHandler_.KeepAlive(weak_from_this());
  inputThread_.KeepAlive(weak_from_this());
  bool result = true;
  {
    // The output thread gets to no request before the states are reset, whichever is faster.
    const COptexGuard guard(statesLock_);
    if (GetOutputCount() != 0) {
      result = outputHandler_.Start("Digital Output thread");
    }
    InitOutputs();
  }
  if (GetInputCount() != 0 && !inputThread_.Start("Digital Input thread", kTickFirst)) {
    result = false;
  }
  if (stopMissed_.exchange(false, std::memory_order_acquire)) {
    EndThreads();
    ResetStates();
    return false;
  }
  return result;
} catch (const std::exception&) {
  return false;  // no memory
}

// All outputs are asked to go low, and each counts as low from the moment its request is processed: a relay
// that was left high must not stay high while a low is remembered.
void CIOBase::InitOutputs() {
  ResetStates();
  for (u32 index = 0; index < GetOutputCount(); ++index) {
    SetOutput(index, IOStateLow);
  }
}

bool CIOBase::Stop() {
  const OwnerGuard owner(*this);
  if (!owner) {
    // Another thread is in Start or Stop, and may be waiting for this one. A Start sees the mark and stops again.
    stopMissed_.store(true, std::memory_order_release);
    outputHandler_.RequestStop();
    inputThread_.RequestStop();
    return false;
  }
  const bool result = EndThreads();
  ResetStates();
  stopMissed_.store(false, std::memory_order_relaxed);  // what was missed is done now, too
  return result;
}

void CIOBase::End() noexcept {
  if (IsOwnThread()) {
    // Whoever is in a Stop waits for this thread no longer, so that it may wait for the Stop.
    own_thread::LetGo();
  }
  const COptexGuard owner(ownerLock_);
  ended_ = true;
  EndThreads();
}

bool CIOBase::IsOwnThread() const noexcept {
  return outputHandler_.IsOwnThread() || inputThread_.IsOwnThread();
}

// False when one of them is the caller.
bool CIOBase::EndThreads() {
  const bool outputsEnded = outputHandler_.Stop();
  const bool ended = inputThread_.Stop(stopTimeout_) && outputsEnded;
  // Under the owner's lock: the next start's requests are no longer these.
  CloseConnections();
  return ended;
}

u32 CIOBase::GetInputCount() { return driver_->GetInputCount(); }

u32 CIOBase::GetOutputCount() { return driver_->GetOutputCount(); }

bool CIOBase::SetOutput(u32 index, u32 state) try {
  const auto keep = shared_from_this();  // the host may end it in a callback meanwhile
  return outputHandler_.PostOutput(index, state);
} catch (const std::exception&) {
  return false;  // no memory
}

void CIOBase::ResetStates() noexcept {
  const COptexGuard guard(statesLock_);
  outputs_.fill(IOStateUnknown);
  inputs_.fill(IOStateUnknown);
}

void CIOBase::UpdateInput(u32 index, u32 state) {
  if (own_thread::IsLetGo()) {
    return;  // in the middle of a reply; the driver may be gone
  }
  bool changed = false;
  {
    const COptexGuard guard(statesLock_);
    changed = Remember(inputs_, GetInputCount(), index, state);
  }
  ICaptureIOCallback* const callback = callback_.load(std::memory_order_acquire);
  if (changed && callback != nullptr) {
    CallHost([=] { callback->OnInputChanged(index, state); });
  }
}

void CIOBase::ApplyOutput(u32 index, u32 state) {
  bool changed = false;
  {
    // The state is taken before the camera has it; should the camera refuse, all states are forgotten.
    const COptexGuard guard(statesLock_);
    changed = Remember(outputs_, GetOutputCount(), index, state);
  }
  if (changed) {
    SendOutput(index, state);
  }
}

void CIOBase::SendOutput(u32 index, u32 state) {
  try {
    if (WriteOutput(index, state)) {
      return;
    }
  } catch (...) {
    // Nothing says that the camera has it.
  }
  ReportFailure();
}

void CIOBase::PollInputs() {
  try {
    if (ReadInputs(driver_->GetInputCount())) {
      return;
    }
  } catch (const std::bad_alloc&) {
    return;  // says nothing of the camera
  } catch (...) {
    // The next tick tries again.
  }
  ReportFailure();
}

void CIOBase::ReportFailure() noexcept {
  ResetStates();
  ICaptureIOCallback* const callback = callback_.load(std::memory_order_acquire);
  if (callback != nullptr) {
    CallHost([=] { callback->OnIOFailure(); });
  }
}

}  // namespace sarnevo
