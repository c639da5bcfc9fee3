#include "threads/CTickThread.h"

namespace sarnevo {

bool CTickThread::Start(const std::string& name, u8 tickFirst) {
  tickFirst_.store(tickFirst, std::memory_order_relaxed);
  return CBaseThread::Start(name);
}

void CTickThread::Run() {
  // The wait for the stop is both the pace and the test for a stop.
  if (tickFirst_.load(std::memory_order_relaxed) != 0) {
    Tick();
  }
  while (!AwaitStop(interval_)) {
    Tick();
  }
}

}  // namespace sarnevo
