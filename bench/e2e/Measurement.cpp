#include "e2e/Measurement.h"

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace kolvex_bench {

namespace {

using namespace std::chrono_literals;

double ProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double Switches() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_nvcsw);
}

double ResidentKb() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1024;
}

// All counters at one moment; the difference of two is a measurement.
Measurement Now(const SentCounts& sent, std::uint64_t complete) {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return {.seconds = std::chrono::duration<double>(now).count(),
          .cpuNanoseconds = ProcessorTime(),
          .packets = static_cast<double>(sent.packets),
          .framesSent = static_cast<double>(sent.frames),
          .framesComplete = static_cast<double>(complete),
          .switches = Switches(),
          .calls = CallsSoFar()};
}

}  // namespace

Measurement Measure(const Plan& plan, const SentCounts& sent, bool counting,
                    const std::function<std::uint64_t()>& complete, const std::function<bool()>& isUp) {
  const auto limit = std::chrono::steady_clock::now() + 60s;
  while (!isUp()) {
    if (std::chrono::steady_clock::now() > limit) {
      return {};
    }
    std::this_thread::sleep_for(20ms);
  }
  std::this_thread::sleep_for(500ms);  // buffers grow in the first second
  CountCalls(counting);
  const Measurement begin = Now(sent, complete());
  std::this_thread::sleep_for(std::chrono::duration<double>(plan.seconds));
  const Measurement end = Now(sent, complete());
  CountCalls(false);
  return {.valid = true,
          .seconds = end.seconds - begin.seconds,
          .cpuNanoseconds = end.cpuNanoseconds - begin.cpuNanoseconds,
          .packets = end.packets - begin.packets,
          .framesSent = end.framesSent - begin.framesSent,
          .framesComplete = end.framesComplete - begin.framesComplete,
          .switches = end.switches - begin.switches,
          .residentKb = ResidentKb(),
          .calls = {end.calls.allocations - begin.calls.allocations, end.calls.receives - begin.calls.receives,
                    end.calls.polls - begin.calls.polls}};
}

}  // namespace kolvex_bench
