#include "threads/CBaseThread.h"

#include "threads/StopPatience.h"

namespace sarnevo {

CBaseThread::~CBaseThread() { CBaseThread::Stop(u32{stop_patience::kForgotten.count()}); }

bool CBaseThread::Start(const std::string& name) {
  stopEvent.Reset();
  return !IsAlive() && thread_.Start(name, [this] { Run(); });
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
