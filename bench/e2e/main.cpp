// Processor time of the receiving process: the library through its exports, a bare receiver and programs that a
// user might take instead, all of the same streams, in turns. Needs a network namespace of its own (bench/run.sh).
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "e2e/Comparison.h"
#include "e2e/Limits.h"
#include "e2e/Table.h"
#include "support/Loopback.h"
#include "support/Main.h"

namespace kolvex_bench {
namespace {

// "64", "400x4" with its own number of frames per second, "64m" with MPEG-4 mixed in, "400x4m"; "64@80" with packets
// 80 us apart.
Plan Parse(const std::string& text, Plan plan) {
  const char* at = text.c_str();
  char* end = nullptr;
  plan.streams = static_cast<int>(std::strtol(at, &end, 10));
  if (*end == 'x') {
    at = end + 1;
    plan.framesPerSecond = static_cast<int>(std::strtol(at, &end, 10));
  }
  plan.mixed = *end == 'm';
  end += plan.mixed ? 1 : 0;
  if (*end == '@') {
    at = end + 1;
    plan.arrival = Arrival::Paced;
    plan.distanceUs = static_cast<int>(std::strtol(at, &end, 10));
  }
  if (end == at || *end != '\0' || plan.distanceUs < 0 || plan.distanceUs > 10'000 || plan.streams < 1 ||
      plan.streams > kMaxStreams || plan.framesPerSecond < 1 || plan.framesPerSecond > 1000) {
    throw std::runtime_error("can't read '" + text + "' as a number of streams");
  }
  return plan;
}

// Those that are installed and asked for, the bare receiver first.
std::vector<Who> Receivers(bool gstreamer, bool ffmpeg) {
  std::vector<Who> who{Bare, Library};
  if (gstreamer && IsInstalled("gst-launch-1.0")) {
    who.insert(who.end(), {GStreamer, GStreamerJitter});
  }
  if (ffmpeg && IsInstalled("ffmpeg")) {
    who.push_back(FFmpeg);
  }
  return who;
}

// The limits hold on a quiet machine with room to spare. On a busy one a single attempt may fail by bad luck.
int Check(const Plan& plan, const Effort& effort, Board& board) {
  constexpr int kAttempts = 3;
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    std::vector<std::string> violations;
    try {
      const nlohmann::json rows = Compare(plan, effort, board, {Bare, Library});
      PrintTable(rows);
      violations = Violations(rows, {});
    } catch (const std::runtime_error& failure) {
      violations.emplace_back(
          failure.what());  // such as no streams in time; it counts as an attempt that failed
    }
    if (violations.empty()) {
      std::printf("\nThe packet path holds its limits.\n");
      return 0;
    }
    for (const std::string& violation : violations) {
      std::printf("\nAttempt %d of %d. %s\n", attempt, kAttempts, violation.c_str());
    }
  }
  return 1;
}

int Run(int argc, char** argv) {
  CLI::App app("Measures what receiving costs: the library, a bare receiver and peers, in turns.");
  std::vector<std::string> streams{"1", "16", "64"};
  Plan common;
  Effort effort;
  int gstreamer = 0;
  int ffmpeg = 0;
  bool isCheck = false;
  std::string jsonFile;
  app.add_option(
         "--streams", streams,
         "Numbers of streams, each a comparison of its own: N, NxFPS, or Nm and NxFPSm with every second "
         "stream MPEG-4, which the peers don't get; N@US with packets that many microseconds apart")
      ->delimiter(',');
  app.add_option("--rounds", effort.rounds, "Turns of each receiver")->check(CLI::PositiveNumber);
  app.add_option("--seconds", effort.windowSeconds, "Length of one turn");
  app.add_option("--frame-bytes", common.frameBytes, "Bytes of a JPEG frame and an MPEG-4 key frame")
      ->check(CLI::Range(2'000, 250'000));
  app.add_option("--arrival", common.arrival, "How the packets of a frame arrive: burst, one-by-one or joined")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Arrival>{
          {"burst", Arrival::Burst}, {"one-by-one", Arrival::OneByOne}, {"joined", Arrival::Joined}}));
  app.add_option("--gstreamer", gstreamer, "Also GStreamer, up to this number of streams");
  app.add_option("--ffmpeg", ffmpeg, "Also FFmpeg, up to this number of streams");
  app.add_flag("--check", isCheck, "Fail when the library passes its limits in all of several attempts");
  app.add_option("--json", jsonFile, "Also write the results there");
  CLI11_PARSE(app, argc, argv);

  AllowDescriptors();
  StayOn(Side::Receivers);
  Board& board = SharedBoard();
  if (!CutEarly(common.arrival != Arrival::Joined) && common.arrival == Arrival::Burst) {
    common.arrival = Arrival::Joined;
    std::fprintf(stderr, "bench_e2e: datagrams can't be cut early here, they arrive joined\n");
  }
  if (isCheck) {
    int failed = 0;
    for (const std::string& text : streams) {
      failed |= Check(Parse(text, common), effort, board);
    }
    return failed;
  }
  nlohmann::json rows = nlohmann::json::array();
  for (const std::string& text : streams) {
    const Plan plan = Parse(text, common);
    std::fprintf(stderr, "bench_e2e: %s streams\n", text.c_str());
    const int count = plan.streams;
    const std::vector<Who> who = Receivers(!plan.mixed && count <= gstreamer, !plan.mixed && count <= ffmpeg);
    nlohmann::json compared;
    try {
      compared = Compare(plan, effort, board, who);
    } catch (const std::runtime_error& failure) {
      if (who.size() == 2) {
        throw;
      }
      // A peer that fails, on a machine that is too busy for it, takes only its own rows along.
      std::fprintf(stderr, "bench_e2e: %s; once more without the peers\n", failure.what());
      compared = Compare(plan, effort, board, {Bare, Library});
    }
    rows.insert(rows.end(), compared.begin(), compared.end());
  }
  PrintTable(rows);
  if (!jsonFile.empty()) {
    std::ofstream(jsonFile) << rows.dump(2) << "\n";
  }
  if (board.late > 0) {
    std::fprintf(stderr, "bench_e2e: the sender left out %llu frames\n",
                 static_cast<unsigned long long>(board.late));
  }
  return 0;
}

}  // namespace
}  // namespace kolvex_bench

int main(int argc, char** argv) { return kolvex_bench::Main("bench_e2e", &kolvex_bench::Run, argc, argv); }
