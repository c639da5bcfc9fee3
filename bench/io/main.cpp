// Processor time per poll of cameras' inputs: our library through its exports and a bare poller with raw sockets,
// side by side in processes of their own, so that both meet the same noise. Needs a network namespace of its own
// (bench/run.sh).
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <new>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "io/CgiServer.h"
#include "io/PollCost.h"
#include "support/Main.h"

namespace kolvex_bench {
namespace {

constexpr std::uint16_t kFirstPort = 8001;
constexpr std::size_t kMaxContestants = 3;

int readyPipe[2];
void SayReady() { static_cast<void>(!write(readyPipe[1], "", 1)); }

class Cameras {
 public:
  Cameras(std::uint16_t port, bool keepAlive, Served& served) {
    if (pipe(readyPipe) != 0 || (process_ = fork()) < 0) {
      throw std::runtime_error("no process for the cameras");
    }
    if (process_ == 0) {
      ServeInputs(port, keepAlive, served, &SayReady);
    }
    close(readyPipe[1]);
    char byte = 0;
    const bool ready = read(readyPipe[0], &byte, 1) == 1;
    close(readyPipe[0]);
    if (!ready) {
      throw std::runtime_error("the cameras didn't start");
    }
  }
  ~Cameras() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  Cameras(const Cameras&) = delete;
  Cameras& operator=(const Cameras&) = delete;

 private:
  pid_t process_ = -1;
};

using MakePoller = std::unique_ptr<Poller> (*)(const PollPlan&);

class PollerProcess {
 public:
  PollerProcess(const PollPlan& plan, MakePoller make, const Served& served) {
    int ends[2];
    if (pipe(ends) != 0 || (process_ = fork()) < 0) {
      throw std::runtime_error("no process for a poller");
    }
    if (process_ == 0) {
      const PollCost cost = MeasurePolls(plan, make, served);
      _exit(write(ends[1], &cost, sizeof(cost)) == sizeof(cost) ? 0 : 1);
    }
    close(ends[1]);
    result_ = ends[0];
  }
  PollCost Cost() {
    PollCost cost;
    std::size_t got = 0;
    ssize_t count = 0;
    while (got < sizeof(cost) &&
           (count = read(result_, reinterpret_cast<char*>(&cost) + got, sizeof(cost) - got)) > 0) {
      got += static_cast<std::size_t>(count);
    }
    close(result_);
    waitpid(process_, nullptr, 0);
    if (got != sizeof(cost) || !cost.valid) {
      throw std::runtime_error("a poller failed");
    }
    return cost;
  }

 private:
  pid_t process_ = -1;
  int result_ = -1;
};

Served* SharedCounts() {
  void* const memory = mmap(nullptr, kMaxContestants * sizeof(Served), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return new (memory) Served[kMaxContestants];
}

using Figure = std::function<double(const PollCost::Window&)>;

nlohmann::json SpreadOf(const PollCost& cost, const PollPlan& plan, const Figure& figure) {
  std::vector<double> values;
  for (int i = 0; i < plan.windows; ++i) {
    values.push_back(figure(cost.windows[i]));
  }
  std::sort(values.begin(), values.end());
  return {{"median", values[values.size() / 2]}, {"least", values.front()}, {"most", values.back()}};
}

// A figure for a camera that wasn't polled would be a good one; so the pace is looked at first.
nlohmann::json Row(const PollCost& cost, const PollPlan& plan) {
  const double expected = plan.cameras * 1000.0 / kPollIntervalMs;
  double polls = 0;
  double seconds = 0;
  for (int i = 0; i < plan.windows; ++i) {
    polls += cost.windows[i].polls;
    seconds += cost.windows[i].seconds;
  }
  if (std::abs(polls / seconds - expected) > 0.1 * expected) {
    throw std::runtime_error("the cameras answered " + std::to_string(polls / seconds) +
                             " polls a second instead of " + std::to_string(expected));
  }
  using Window = PollCost::Window;
  return {{"microsecondsPerPoll",
           SpreadOf(cost, plan, [](const Window& w) { return w.cpuMicroseconds / w.polls; })},
          {"percentOfCore",
           SpreadOf(cost, plan, [](const Window& w) { return w.cpuMicroseconds / w.seconds / 1e4; })},
          {"waitsPerPoll", SpreadOf(cost, plan, [](const Window& w) { return w.switches / w.polls; })},
          {"connectionsPerPoll", SpreadOf(cost, plan, [](const Window& w) { return w.connections / w.polls; })},
          {"pollsPerSecond", polls / seconds},
          {"threads", cost.threads},
          {"descriptors", cost.descriptors},
          {"residentKbPerCamera", cost.residentKbPerCamera}};
}

// One poller of a comparison, with cameras of its own.
struct Contestant {
  std::string name;
  MakePoller make;
  std::string library;
};

nlohmann::json Compare(PollPlan plan, const std::vector<Contestant>& contestants) {
  Served* const served = SharedCounts();
  static std::uint16_t port = kFirstPort;  // those of the row before may still be in use
  const std::uint16_t first = port;
  std::vector<std::unique_ptr<Cameras>> cameras;
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    cameras.push_back(std::make_unique<Cameras>(port++, plan.keepAlive, served[i]));
  }
  std::vector<std::unique_ptr<PollerProcess>> pollers;
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    plan.port = static_cast<std::uint16_t>(first + i);
    plan.library = contestants[i].library;
    pollers.push_back(std::make_unique<PollerProcess>(plan, contestants[i].make, served[i]));
  }
  std::vector<PollCost> costs;
  for (const auto& poller : pollers) {
    costs.push_back(poller->Cost());
  }
  nlohmann::json rows;
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    std::vector<double> ratios;
    for (int window = 0; window < plan.windows; ++window) {
      const auto perPoll = [window](const PollCost& cost) {
        return cost.windows[window].cpuMicroseconds / cost.windows[window].polls;
      };
      ratios.push_back(perPoll(costs[i]) / perPoll(costs[0]));
    }
    std::sort(ratios.begin(), ratios.end());
    nlohmann::json row = Row(costs[i], plan);
    row.update({{"poller", contestants[i].name},
                {"cameras", plan.cameras},
                {"keepAlive", plan.keepAlive},
                {"outputs", plan.outputs},
                {"ratio", ratios[ratios.size() / 2]}});
    rows.push_back(std::move(row));
  }
  return rows;
}

void Print(const nlohmann::json& row) {
  const auto spread = [](const nlohmann::json& value, const char* format) {
    char text[64];
    std::snprintf(text, sizeof(text), format, value["median"].get<double>(), value["least"].get<double>(),
                  value["most"].get<double>());
    return std::string(text);
  };
  std::printf("| %s | %d | %s | %s | %s | %.2f | %.2f | %.2f | %.0f | %.0f | %.0f |\n",
              row["keepAlive"].get<bool>() ? "kept" : "closed", row["outputs"].get<int>(),
              row["poller"].get<std::string>().c_str(),
              spread(row["microsecondsPerPoll"], "%.0f (%.0f to %.0f)").c_str(),
              spread(row["percentOfCore"], "%.2f (%.2f to %.2f)").c_str(), row["ratio"].get<double>(),
              row["waitsPerPoll"]["median"].get<double>(), row["connectionsPerPoll"]["median"].get<double>(),
              row["threads"].get<double>(), row["descriptors"].get<double>(),
              row["residentKbPerCamera"].get<double>());
  std::fflush(stdout);
}

void AllowDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int Run(int argc, char** argv) {
  CLI::App app("Measures the library's processor time per poll of a camera's inputs against a bare poller.");
  PollPlan plan;
  std::string jsonFile;
  std::string otherLibrary;
  app.add_option("--cameras", plan.cameras, "Cameras of each poller")->check(CLI::Range(1, 2000));
  app.add_option("--windows", plan.windows, "Measured windows")->check(CLI::Range(1, kMaxWindows));
  app.add_option("--seconds", plan.windowSeconds, "Length of a window")->check(CLI::PositiveNumber);
  app.add_option("--other", otherLibrary, "Another build of the library, measured beside")
      ->check(CLI::ExistingFile);
  app.add_option("--json", jsonFile, "Also write the results there");
  std::vector<std::string> wanted = {"closed", "kept", "outputs"};
  app.add_option("--rows", wanted, "closed or kept connections; outputs: kept, and an output each")
      ->check(CLI::IsMember({"closed", "kept", "outputs"}));
  CLI11_PARSE(app, argc, argv);
  AllowDescriptors();

  std::printf("%d cameras, one poll in %d ms each, %d windows of %.0f s: median (least to most).\n\n",
              plan.cameras, kPollIntervalMs, plan.windows, plan.windowSeconds);
  std::printf(
      "| connections | outputs | poller | us/poll | %% of a core | ratio | waits/poll | connections/poll | "
      "threads | "
      "descriptors | kB/camera |\n|---|---:|---|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  std::vector<Contestant> contestants = {{"bare", &MakeBarePoller, ""},
                                         {"library", &MakeLibraryPoller, KOLVEX_LIBRARY}};
  if (!otherLibrary.empty()) {
    contestants.push_back({"other library", &MakeLibraryPoller, otherLibrary});
  }
  nlohmann::json rows;
  for (const std::string& kind : wanted) {
    plan.keepAlive = kind != "closed";
    plan.outputs = kind == "outputs" ? 1 : 0;
    for (nlohmann::json& row : Compare(plan, contestants)) {
      Print(row);
      rows.push_back(std::move(row));
    }
  }
  if (!jsonFile.empty()) {
    std::ofstream(jsonFile) << rows.dump(2) << "\n";
  }
  return 0;
}

}  // namespace
}  // namespace kolvex_bench

int main(int argc, char** argv) { return kolvex_bench::Main("bench_io", &kolvex_bench::Run, argc, argv); }
