#include "e2e/SystemCalls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace kolvex_bench {

namespace {

std::string NameOf(std::uint64_t number) {
  switch (number) {
    case SYS_recvfrom:
      return "recvfrom";
    case SYS_recvmsg:
      return "recvmsg";
    case SYS_recvmmsg:
      return "recvmmsg";
    case SYS_poll:
      return "poll";
    case SYS_ppoll:
      return "ppoll";
    case SYS_futex:
      return "futex";
    case SYS_clock_nanosleep:
      return "clock_nanosleep";
    case SYS_sched_yield:
      return "sched_yield";
    case SYS_restart_syscall:
      return "restart_syscall";
    default:
      return "call " + std::to_string(number);
  }
}

void Seize(pid_t process) {
  const std::filesystem::path tasks = "/proc/" + std::to_string(process) + "/task";
  std::error_code ended;
  for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
    const auto thread = static_cast<pid_t>(std::atoi(task.path().filename().c_str()));
    if (ptrace(PTRACE_SEIZE, thread, 0, PTRACE_O_TRACESYSGOOD) == 0) {
      ptrace(PTRACE_INTERRUPT, thread, 0, 0);
    }
  }
}

// A stop of a thread: one in front of a system call is counted, and all go on to the next.
void Resume(pid_t thread, int status, bool counting, std::map<std::uint64_t, double>& counts) {
  const int signal = WSTOPSIG(status);
  if (signal == (SIGTRAP | 0x80)) {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info);
    if (counting && info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      counts[info.entry.nr] += 1;
    }
  }
  const bool isEvent = signal == (SIGTRAP | 0x80) || (status >> 16) != 0;
  ptrace(PTRACE_SYSCALL, thread, 0, isEvent ? 0 : signal);
}

}  // namespace

CallsByName TraceSystemCalls(const std::vector<pid_t>& processes, const std::function<void()>& during) {
  std::atomic<bool> counting{false};
  std::atomic<bool> ending{false};
  std::map<std::uint64_t, double> counts;
  // A thread of its own: at its end the system lets go of all that it traced.
  std::thread tracer([&] {
    for (const pid_t process : processes) {
      Seize(process);
    }
    while (!ending) {
      int status = 0;
      const pid_t thread = waitpid(-1, &status, __WALL | __WNOTHREAD);
      if (thread < 0) {
        return;  // none could be seized
      }
      if (WIFSTOPPED(status) && !ending) {
        Resume(thread, status, counting, counts);
      }
    }
  });
  // All of them have to be caught before the first call counts.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  counting = true;
  during();
  ending = true;
  for (const pid_t process : processes) {
    kill(process,
         SIGWINCH);  // ignored there, but it stops a thread for the tracer, which may be waiting for one
  }
  tracer.join();
  CallsByName named;
  for (const auto& [number, count] : counts) {
    named[NameOf(number)] = count;
  }
  return named;
}

}  // namespace kolvex_bench
