#include "ProgramEnd.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>

namespace kolvex_host {

namespace {

std::atomic<bool> leftBehind{false};

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

StopSignal::StopSignal() {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool StopSignal::Wait(std::chrono::milliseconds timeout, Second second) {
  const sigset_t set = StopSignals();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
  const timespec limit{seconds.count(), std::chrono::nanoseconds(timeout - seconds).count()};
  if (sigtimedwait(&set, nullptr, &limit) < 0) {
    return false;
  }
  if (second == Second::Ends) {
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  }
  return true;
}

void LeaveThreadBehind() noexcept { leftBehind = true; }

int EndProgram(int code) noexcept {
  if (leftBehind) {
    std::cout.flush();
    std::fflush(nullptr);
    std::_Exit(code);
  }
  return code;
}

}  // namespace kolvex_host
