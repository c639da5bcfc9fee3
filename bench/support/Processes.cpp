#include "support/Processes.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kolvex_bench {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// The value after "Name:" in a file of lines.
double Field(const fs::path& file, const std::string& name) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(name + ":")) {
      return std::strtod(line.c_str() + name.size() + 1, nullptr);
    }
  }
  return 0;
}

}  // namespace

Processes::~Processes() { End(SIGKILL); }

void Processes::Fork(const std::function<void()>& body) {
  const pid_t id = fork();
  if (id < 0) {
    throw std::runtime_error("no further process");
  }
  if (id == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      body();
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "%s\n", failure.what());
      _exit(1);
    }
    for (;;) {
      pause();
    }
  }
  ids_.push_back(id);
}

void Processes::Execute(const std::vector<std::string>& command, const std::string& log, int niceness) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  Fork([&] {
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    setpriority(PRIO_PROCESS, 0, niceness);
    execvp(arguments[0], arguments.data());
    throw std::runtime_error("can't run " + command.front());
  });
}

void Processes::End(int signal) {
  for (const pid_t id : ids_) {
    kill(id, signal);
  }
  const auto limit = std::chrono::steady_clock::now() + 5s;
  for (const pid_t id : ids_) {
    while (waitpid(id, nullptr, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > limit) {
        kill(id, SIGKILL);
      }
      std::this_thread::sleep_for(2ms);
    }
  }
  ids_.clear();
}

void Processes::Check(const std::string& name) {
  for (const pid_t id : ids_) {
    siginfo_t ended{};
    if (waitid(P_PID, static_cast<id_t>(id), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0) {
      throw std::runtime_error(name + " has ended");
    }
  }
}

void StayOn(Side side) {
  const long last = sysconf(_SC_NPROCESSORS_ONLN) - 1;
  if (last < 1) {
    return;
  }
  cpu_set_t own;
  CPU_ZERO(&own);
  for (long i = 0; i <= last; ++i) {
    if ((i == last) == (side == Side::Sender)) {
      CPU_SET(static_cast<std::size_t>(i), &own);
    }
  }
  sched_setaffinity(0, sizeof(own), &own);
}

void AllowDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

bool IsInstalled(const std::string& program) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access((fs::path(folder) / program).c_str(), X_OK) == 0) {
      return true;
    }
  }
  return false;
}

double ProcessorTime(pid_t process) {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("a process has gone that was to be measured");
  }
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void ProcessFacts::Add(const ProcessFacts& other) {
  residentKb += other.residentKb;
  proportionalKb += other.proportionalKb;
  threads += other.threads;
  descriptors += other.descriptors;
  voluntary += other.voluntary;
}

ProcessFacts FactsOf(pid_t process) {
  const fs::path folder = "/proc/" + std::to_string(process);
  ProcessFacts facts{.residentKb = Field(folder / "smaps_rollup", "Rss"),
                     .proportionalKb = Field(folder / "smaps_rollup", "Pss")};
  std::error_code ended;  // a thread may end meanwhile
  for (const auto& thread : fs::directory_iterator(folder / "task", ended)) {
    facts.threads += 1;
    facts.voluntary += Field(thread.path() / "status", "voluntary_ctxt_switches");
  }
  facts.descriptors = static_cast<double>(
      std::distance(fs::directory_iterator(folder / "fd", ended), fs::directory_iterator()));
  return facts;
}

double DroppedDatagrams() {
  // A line of names and one of values, each beginning with the protocol.
  std::ifstream in("/proc/self/net/snmp");
  std::string names;
  std::string values;
  while (std::getline(in, names) && std::getline(in, values)) {
    if (!names.starts_with("Udp:")) {
      continue;
    }
    std::istringstream name(names);
    std::istringstream value(values);
    std::string n;
    for (std::string v; name >> n && value >> v;) {
      if (n == "RcvbufErrors") {
        return std::strtod(v.c_str(), nullptr);
      }
    }
  }
  return std::numeric_limits<double>::quiet_NaN();
}

bool AreBound(const std::vector<std::uint16_t>& ports) {
  std::ifstream in("/proc/self/net/udp");
  std::string line;
  std::getline(in, line);
  std::set<unsigned long> bound;
  while (std::getline(in, line)) {
    // "  12: 0100007F:0DE4 ...": the port is hexadecimal.
    const std::size_t colon = line.find(':', line.find(':') + 1);
    bound.insert(std::strtoul(line.c_str() + colon + 1, nullptr, 16));
  }
  for (const std::uint16_t port : ports) {
    if (bound.count(port) == 0) {
      return false;
    }
  }
  return true;
}

}  // namespace kolvex_bench
