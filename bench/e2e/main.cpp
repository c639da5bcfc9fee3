// Processor time per packet of the receiving process: our library through its exports against a bare receiver of
// the same streams, in runs that take turns. Needs a network namespace of its own (bench/run.sh).
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <new>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <vector>

#include "e2e/Receivers.h"
#include "e2e/Sender.h"

namespace kolvex_bench {
namespace {

int readyPipe[2];
void SayReady() { static_cast<void>(!write(readyPipe[1], "", 1)); }

class SenderProcess {
 public:
  SenderProcess(const Plan& plan, SentCounts& sent) {
    if (pipe(readyPipe) != 0 || (process_ = fork()) < 0) {
      throw std::runtime_error("no process for the sender");
    }
    if (process_ == 0) {
      RunSender(plan, sent, &SayReady);
    }
    close(readyPipe[1]);
    char byte = 0;
    const bool ready = read(readyPipe[0], &byte, 1) == 1;
    close(readyPipe[0]);
    if (!ready) {
      throw std::runtime_error("the sender didn't start");
    }
  }
  ~SenderProcess() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  SenderProcess(const SenderProcess&) = delete;
  SenderProcess& operator=(const SenderProcess&) = delete;

 private:
  pid_t process_ = -1;
};

using Receiver = Measurement (*)(const Plan&, const SentCounts&, bool);

// Each run has a fresh process, so that none inherits the other's memory or threads.
Measurement InProcess(Receiver receiver, const Plan& plan, const SentCounts& sent, bool counting) {
  int result[2];
  if (pipe(result) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t process = fork();
  if (process == 0) {
    const Measurement measured = receiver(plan, sent, counting);
    _exit(write(result[1], &measured, sizeof(measured)) == sizeof(measured) ? 0 : 1);
  }
  close(result[1]);
  Measurement measured;
  const bool came = read(result[0], &measured, sizeof(measured)) == sizeof(measured);
  close(result[0]);
  waitpid(process, nullptr, 0);
  if (!came || !measured.valid || measured.packets == 0) {
    throw std::runtime_error("a receiver got no streams");
  }
  return measured;
}

struct Spread {
  double median = 0, least = 0, most = 0;
};

Spread SpreadOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {values[values.size() / 2], values.front(), values.back()};
}

nlohmann::json Json(const Spread& spread) {
  return {{"median", spread.median}, {"least", spread.least}, {"most", spread.most}};
}

double CostOf(const Measurement& run) { return run.cpuNanoseconds / run.packets; }

// A median says nothing about packets that never came, so that this stands beside it.
double PercentComplete(const std::vector<Measurement>& runs) {
  double sent = 0;
  double complete = 0;
  for (const Measurement& run : runs) {
    sent += run.framesSent;
    complete += run.framesComplete;
  }
  return 100 * complete / sent;
}

nlohmann::json Compare(const Plan& plan, int runs, SentCounts& sent) {
  const SenderProcess sender(plan, sent);
  std::vector<Measurement> bare, ours;
  std::vector<double> bareCost, ourCost, ratio;
  for (int i = 0; i < runs; ++i) {
    bare.push_back(InProcess(&RunBaseline, plan, sent, false));
    ours.push_back(InProcess(&RunLibrary, plan, sent, false));
    bareCost.push_back(CostOf(bare.back()));
    ourCost.push_back(CostOf(ours.back()));
    ratio.push_back(ourCost.back() / bareCost.back());
  }
  const Measurement bareCalls = InProcess(&RunBaseline, plan, sent, true);
  const Measurement ourCalls = InProcess(&RunLibrary, plan, sent, true);
  const auto calls = [](const Measurement& run) {
    const auto per = [&](std::uint64_t count) { return static_cast<double>(count) / run.packets; };
    return nlohmann::json{{"allocations", per(run.calls.allocations)},
                          {"receives", per(run.calls.receives)},
                          {"polls", per(run.calls.polls)},
                          {"waits", run.switches / run.packets}};
  };
  return {{"streams", plan.streams},
          {"mixed", plan.mixed},
          {"packetsPerSecond", ours.back().packets / ours.back().seconds},
          {"baselineNsPerPacket", Json(SpreadOf(bareCost))},
          {"libraryNsPerPacket", Json(SpreadOf(ourCost))},
          {"ratio", Json(SpreadOf(ratio))},
          {"baselineFramesPercent", PercentComplete(bare)},
          {"libraryFramesPercent", PercentComplete(ours)},
          {"libraryResidentKbPerStream", ours.back().residentKb / plan.streams},
          {"baselinePerPacket", calls(bareCalls)},
          {"libraryPerPacket", calls(ourCalls)}};
}

void PrintHead(int runs, double seconds) {
  std::printf("Receiving process, %d interleaved runs of %.0f s each: median (least to most).\n\n", runs,
              seconds);
  std::printf(
      "| streams | packets/s | bare receiver ns/packet | library ns/packet | ratio | frames complete, bare / "
      "library | allocations/packet | receive + poll calls/packet, bare / library | kB/stream |\n");
  std::printf("|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
}

void PrintRow(const nlohmann::json& row) {
  const auto spread = [&](const char* name, const char* format) {
    char text[64];
    std::snprintf(text, sizeof(text), format, row[name]["median"].get<double>(),
                  row[name]["least"].get<double>(), row[name]["most"].get<double>());
    return std::string(text);
  };
  const auto number = [](const nlohmann::json& value) { return value.get<double>(); };
  const auto& bare = row["baselinePerPacket"];
  const auto& ours = row["libraryPerPacket"];
  std::printf("| %d%s | %.0f | %s | %s | %s | %.2f%% / %.2f%% | %.4f | %.2f + %.2f / %.2f + %.2f | %.0f |\n",
              row["streams"].get<int>(), row["mixed"].get<bool>() ? " mixed" : "",
              number(row["packetsPerSecond"]), spread("baselineNsPerPacket", "%.0f (%.0f to %.0f)").c_str(),
              spread("libraryNsPerPacket", "%.0f (%.0f to %.0f)").c_str(),
              spread("ratio", "%.2f (%.2f to %.2f)").c_str(), number(row["baselineFramesPercent"]),
              number(row["libraryFramesPercent"]), number(ours["allocations"]), number(bare["receives"]),
              number(bare["polls"]), number(ours["receives"]), number(ours["polls"]),
              number(row["libraryResidentKbPerStream"]));
  std::fflush(stdout);
}

SentCounts& SharedCounts() {
  void* const memory =
      mmap(nullptr, sizeof(SentCounts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return *new (memory) SentCounts;
}

int Run(int argc, char** argv) {
  CLI::App app("Measures the library's processor time per packet against a bare receiver.");
  std::vector<int> streams{1, 16, 64};
  Plan plan;
  int runs = 3;
  std::string jsonFile;
  app.add_option("--streams", streams, "Numbers of streams, one row each")->delimiter(',');
  app.add_option("--runs", runs, "Interleaved runs of each receiver")->check(CLI::PositiveNumber);
  app.add_option("--seconds", plan.seconds, "Length of a run's measured window");
  app.add_option("--frame-bytes", plan.frameBytes, "Bytes of a JPEG frame and an MPEG-4 key frame");
  app.add_option("--fps", plan.framesPerSecond, "Frames per second of each stream");
  app.add_flag("--mixed", plan.mixed, "Every second stream is MPEG-4");
  app.add_option("--json", jsonFile, "Also write the results there");
  CLI11_PARSE(app, argc, argv);

  SentCounts& sent = SharedCounts();
  nlohmann::json rows;
  PrintHead(runs, plan.seconds);
  for (const int count : streams) {
    plan.streams = count;
    rows.push_back(Compare(plan, runs, sent));
    PrintRow(rows.back());
  }
  if (!jsonFile.empty()) {
    std::ofstream(jsonFile) << rows.dump(2) << "\n";
  }
  return 0;
}

}  // namespace
}  // namespace kolvex_bench

int main(int argc, char** argv) {
  try {
    return kolvex_bench::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_e2e: %s\n", failure.what());
    return 1;
  }
}
