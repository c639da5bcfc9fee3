#include "Sweep.h"

#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <set>

#include "Process.h"
#include "Scenario.h"

namespace kolvex_test {

namespace {

constexpr int kAtOnce = 16;       // processes; each waits more than it works
constexpr unsigned kLimit = 120;  // seconds for a run that takes one
constexpr int kShort = 50;        // steps beyond make the short form
constexpr int kGood = 0, kBad = 1, kUnharmed = 3;

struct Case {
  Resource resource = Resource::Memory;
  bool onward = false;
  const char* group = "1";
  long n = 1;

  std::string Kind() const {
    static constexpr const char* kNames[] = {"memory", "socket", "bind",  "connect", "thread",
                                             "open",   "write",  "flush", "rename"};
    return "group " + std::string(group) + ", " + (onward ? "all from the n-th " : "the n-th ") +
           kNames[static_cast<int>(resource)];
  }
  std::string Text() const { return Kind() + ", n = " + std::to_string(n); }
};

std::string Address() { return "00:11:22:33:44:55 of " + std::to_string(getpid()); }

// In the process of one case.
[[noreturn]] void RunCase(const Library& library, const Case& c, bool cold) {
  alarm(kLimit);
  Host host(c.group, 1, Address());
  const long descriptors = Descriptors(), blocks = LiveBlocks();
  Fail(c.resource, c.n, c.onward);
  bool good = RunScenario(library, host);
  const bool struck = Strikes() != 0;
  Heal();
  if (cold) {
    Host again(c.group, 1, Address());
    good = RunScenario(library, again) && good;
  } else {
    if (!Eventually([&] { return Threads() == 1; })) {
      std::fprintf(stderr, "  %ld threads stay\n", Threads() - 1);
      good = false;
    }
    if (Descriptors() != descriptors || LiveBlocks() != blocks) {
      std::fprintf(stderr, "  %ld descriptors and %ld blocks stay\n", Descriptors() - descriptors,
                   LiveBlocks() - blocks);
      good = false;
    }
  }
  if (auto* const dump = library.Find<void()>("DumpCoverage")) {
    dump();
  }
  _exit(!good ? kBad : struck ? kGood : kUnharmed);
}

class Runner {
 public:
  Runner(const Library& library, bool cold) : library_(library), cold_(cold) {}

  // All n of each kind in turn, until a run of that kind in which nothing was struck.
  void Run(std::vector<Case> kinds, int step) {
    while (!kinds.empty()) {
      for (Case& c : kinds) {
        Begin(c);
        c.n += c.resource == Resource::Memory ? step : 1;
      }
      std::erase_if(kinds, [this](const Case& c) { return unharmed_.contains(c.Kind()); });
    }
    while (!running_.empty()) {
      AwaitOne();
    }
  }

  int bad = 0;

 private:
  void Begin(const Case& c) {
    const pid_t child = fork();
    if (child == 0) {
      RunCase(library_, c, cold_);
    }
    running_[child] = c;
    if (running_.size() == (std::getenv("KOLVEX_TRACE") != nullptr ? 1 : kAtOnce)) {
      AwaitOne();
    }
  }

  void AwaitOne() {
    int status = 0;
    const pid_t child = wait(&status);
    const auto found = running_.find(child);
    if (found == running_.end()) {
      return;
    }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kBad;
    if (code == kUnharmed && unharmed_.insert(found->second.Kind()).second) {
      std::printf("%s: passes whole\n", found->second.Text().c_str());
    }
    if (code != kGood && code != kUnharmed) {
      const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
      std::printf("%s: %s %d\n", found->second.Text().c_str(),
                  signal == SIGALRM ? "hangs"
                  : signal != 0     ? "dies of signal"
                                    : "fails with",
                  signal != 0 ? signal : code);
      ++bad;
    }
    running_.erase(found);
  }

  const Library& library_;
  const bool cold_;
  std::map<pid_t, Case> running_;
  std::set<std::string> unharmed_;  // kinds
};

}  // namespace

bool Sweep(const Library& library, int step, bool cold) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (!cold) {
    for (const char* group : {"1", "2"}) {
      Host host(group, 1, Address());
      if (!RunScenario(library, host)) {
        return false;
      }
    }
  }
  std::vector<Case> kinds;
  for (const char* group : {"1", "2"}) {
    for (int resource = 0; resource < static_cast<int>(Resource::Count); ++resource) {
      kinds.push_back({static_cast<Resource>(resource), false, group});
      if (step <= kShort) {
        kinds.push_back({static_cast<Resource>(resource), true, group});
      }
    }
  }
  Runner runner(library, cold);
  runner.Run(kinds, step);
  std::printf("%d runs went wrong\n", runner.bad);
  return runner.bad == 0;
}

}  // namespace kolvex_test
