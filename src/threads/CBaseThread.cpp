#include "threads/CBaseThread.h"

#include <new>

#include "threads/Timeout.h"

namespace sarnevo {

namespace {

constexpr u32 kDestructorTimeoutMs = 2000;

}  // namespace

CBaseThread::CBaseThread() noexcept = default;

CBaseThread::~CBaseThread() { CBaseThread::Stop(kDestructorTimeoutMs); }

bool CBaseThread::Start(const std::string& name) {
  // A thread without its stop event could neither be paced nor stopped.
  if (!stopEvent.Reset() || IsAlive()) {
    return false;
  }
  try {
    name_ = name;
  } catch (const std::bad_alloc&) {
    return false;
  }
  return thread_.Start(name_, [this, owner = owner_.lock()] { Run(); });
}

bool CBaseThread::Stop(u32 timeoutMs) {
  stopEvent.Set();
  if (IsOwnThread()) {
    return false;
  }
  thread_.End(TimeoutOf(timeoutMs));
  return true;
}

bool CBaseThread::AwaitStop(u32 timeoutMs) noexcept {
  return own_thread::IsLetGo() || stopEvent.Wait(timeoutMs);
}

}  // namespace sarnevo
