// Processor time of the receiving process: the library through its exports, a bare receiver and programs that a
// user might take instead, all of the same streams, in turns. Needs a network namespace of its own (bench/run.sh).
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <vector>

#include "e2e/Comparison.h"
#include "e2e/Table.h"

namespace kolvex_bench {
namespace {

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

int Run(int argc, char** argv) {
  CLI::App app("Measures what receiving costs: the library, a bare receiver and peers, in turns.");
  std::vector<int> streams{1, 16, 64};
  Plan plan;
  Effort effort;
  int gstreamer = 0;
  int ffmpeg = 0;
  bool isHeadless = false;
  std::string jsonFile;
  app.add_option("--streams", streams, "Numbers of streams, each a comparison of its own")
      ->delimiter(',')
      ->check(CLI::Range(1, kMaxStreams));
  app.add_option("--rounds", effort.rounds, "Turns of each receiver")->check(CLI::PositiveNumber);
  app.add_option("--seconds", effort.windowSeconds, "Length of one turn");
  app.add_option("--frame-bytes", plan.frameBytes, "Bytes of a JPEG frame and an MPEG-4 key frame")
      ->check(CLI::Range(2'000, 250'000));
  app.add_option("--fps", plan.framesPerSecond, "Frames per second of each stream")->check(CLI::Range(1, 1000));
  app.add_flag("--mixed", plan.mixed, "Every second stream is MPEG-4; without peers");
  app.add_flag("--segmented", plan.segmented, "The sender leaves the cutting into packets to the kernel");
  app.add_option("--gstreamer", gstreamer, "Also GStreamer, up to this number of streams");
  app.add_option("--ffmpeg", ffmpeg, "Also FFmpeg, up to this number of streams");
  app.add_flag("--no-head", isHeadless, "Rows without the table's head");
  app.add_option("--json", jsonFile, "Also write the results there");
  CLI11_PARSE(app, argc, argv);

  AllowDescriptors();
  Board& board = SharedBoard();
  nlohmann::json rows = nlohmann::json::array();
  if (!isHeadless) {
    PrintHead();
  }
  for (const int count : streams) {
    plan.streams = count;
    const std::vector<Who> who = Receivers(!plan.mixed && count <= gstreamer, !plan.mixed && count <= ffmpeg);
    const nlohmann::json compared = Compare(plan, effort, board, who);
    PrintRows(compared);
    rows.insert(rows.end(), compared.begin(), compared.end());
  }
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

int main(int argc, char** argv) {
  try {
    return kolvex_bench::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_e2e: %s\n", failure.what());
    return 1;
  }
}
