#include "io/PollCost.h"

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace kolvex_bench {

namespace {

using Seconds = std::chrono::duration<double>;

PollCost::Window Now(const Served& served) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto microseconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  };
  return {.cpuMicroseconds = microseconds(usage.ru_utime) + microseconds(usage.ru_stime),
          .polls = static_cast<double>(served.requests),
          .connections = static_cast<double>(served.connections),
          .switches = static_cast<double>(usage.ru_nvcsw),
          .seconds = Seconds(std::chrono::steady_clock::now().time_since_epoch()).count()};
}

double ResidentKb() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1024;
}

double Entries(const char* folder) {
  return static_cast<double>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

PollCost MeasurePolls(const PollPlan& plan, std::unique_ptr<Poller> (*make)(const PollPlan&),
                      const Served& served) {
  const std::unique_ptr<Poller> poller = make(plan);
  PollCost cost;
  const double residentKb = ResidentKb();
  const double threads = Entries("/proc/self/task");
  const double descriptors = Entries("/proc/self/fd");
  const auto step = std::chrono::microseconds(1000 * kPollIntervalMs / plan.cameras);
  auto due = std::chrono::steady_clock::now();
  for (int i = 0; i < plan.cameras; ++i, due += step) {
    std::this_thread::sleep_until(due);
    poller->Add(i);
  }
  std::this_thread::sleep_for(Seconds(plan.warmUpSeconds));
  PollCost::Window begin = Now(served);
  for (int i = 0; i < plan.windows; ++i) {
    std::this_thread::sleep_for(Seconds(plan.windowSeconds));
    const PollCost::Window end = Now(served);
    cost.windows[i] = {.cpuMicroseconds = end.cpuMicroseconds - begin.cpuMicroseconds,
                       .polls = end.polls - begin.polls,
                       .connections = end.connections - begin.connections,
                       .switches = end.switches - begin.switches,
                       .seconds = end.seconds - begin.seconds};
    begin = end;
  }
  cost.residentKbPerCamera = (ResidentKb() - residentKb) / plan.cameras;
  cost.threads = Entries("/proc/self/task") - threads;
  cost.descriptors = Entries("/proc/self/fd") - descriptors;
  cost.valid = true;
  return cost;
}

}  // namespace kolvex_bench
