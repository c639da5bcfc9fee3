// Hundreds of channels at once: a storm of starts, an outage of all cameras, their return, and the stop of all. This
// process is the host; the cameras are another. Needs a network namespace of its own (bench/run.sh).
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "e2e/Sender.h"
#include "e2e/Stamp.h"
#include "support/HostCamera.h"
#include "support/Loopback.h"
#include "support/Main.h"
#include "support/Processes.h"
#include "support/Statistics.h"

namespace kolvex_bench {
namespace {

using namespace std::chrono_literals;

constexpr int kPlace = 0;
constexpr int kStoppedAlone = 8;  // of all channels; the rest stop at once

// Notes when its first frame comes, from any moment on.
class WaitingCamera : public HostCamera {
 public:
  using HostCamera::HostCamera;

  void Expect() { first_ = 0; }
  /// Nanoseconds of the clock of stamps; 0 until then.
  std::int64_t First() const { return first_; }

  bool OnFrame(sarnevo::ipcapture::IFrame* /*frame*/) override {
    if (first_.load(std::memory_order_relaxed) == 0 && Stamp::AgeOf(FrameData(), FrameSize())) {
      first_ = Stamp::Now();
    }
    return true;
  }
  void OnNoData() override { ++noData; }

  std::atomic<int> noData{0};

 private:
  std::atomic<std::int64_t> first_{0};
};

class Storm {
 public:
  Storm(const Plan& plan, double outageSeconds)
      : plan_(plan), outageSeconds_(outageSeconds), board_(SharedBoard()) {
    StartSender(sender_, plan, board_, kPlace);
    board_.active = kPlace;
    for (int i = 0; i < plan.streams; ++i) {
      cameras_.push_back(std::make_unique<WaitingCamera>(CameraAddress(i), CodecOf(plan, i)));
    }
  }

  nlohmann::json Run() {
    const DriverLibrary library(KOLVEX_LIBRARY);
    const ProcessFacts before = FactsOf(getpid());
    nlohmann::json result{{"channels", plan_.streams}, {"framesPerSecond", plan_.framesPerSecond}};
    result["start"] = Timed([&] {
      for (auto& camera : cameras_) {
        camera->Start(library);
      }
    });
    result["running"] = Facts(before);
    result["outage"] = Outage();
    board_.absent = false;
    result["return"] = Timed([] {});
    result["stop"] = Stop();
    result["stopped"] = Facts(before);
    return result;
  }

 private:
  // From the first call of @p begin to a frame from every channel.
  nlohmann::json Timed(const std::function<void()>& begin) {
    for (auto& camera : cameras_) {
      camera->Expect();
    }
    const std::int64_t start = Stamp::Now();
    const double cpu = ProcessorTime(getpid());
    begin();
    const double calls = SecondsSince(start);
    std::vector<double> times;
    for (auto& camera : cameras_) {
      while (camera->First() == 0) {
        if (SecondsSince(start) > 60) {
          throw std::runtime_error(std::to_string(times.size()) + " channels deliver, the next doesn't");
        }
        std::this_thread::sleep_for(10ms);
      }
      times.push_back(static_cast<double>(camera->First() - start) / 1e9);
    }
    return {{"callsSeconds", calls},
            {"secondsToFrame", Json(SpreadOf(times))},
            {"cpuMsPerChannel", (ProcessorTime(getpid()) - cpu) / 1e6 / plan_.streams}};
  }

  nlohmann::json Outage() {
    board_.absent = true;
    const double cpu = ProcessorTime(getpid());
    std::this_thread::sleep_for(std::chrono::duration<double>(outageSeconds_));
    int told = 0;
    for (auto& camera : cameras_) {
      told += camera->noData > 0 ? 1 : 0;
    }
    const double used = (ProcessorTime(getpid()) - cpu) / 1e9;
    return {{"seconds", outageSeconds_},
            {"percentOfCorePerChannel", 100 * used / outageSeconds_ / plan_.streams},
            {"channelsTold", told}};
  }

  nlohmann::json Stop() {
    std::vector<double> alone;
    const auto stop = [](WaitingCamera& camera) {
      if (!camera.Stop()) {
        throw std::runtime_error("a channel didn't stop");
      }
    };
    std::size_t next = 0;
    for (; next < kStoppedAlone && next < cameras_.size(); ++next) {
      const std::int64_t start = Stamp::Now();
      stop(*cameras_[next]);
      alone.push_back(SecondsSince(start));
    }
    const std::int64_t start = Stamp::Now();
    const double cpu = ProcessorTime(getpid());
    std::vector<std::thread> threads;
    for (; next < cameras_.size(); ++next) {
      threads.emplace_back(stop, std::ref(*cameras_[next]));
    }
    const auto count = static_cast<double>(threads.size());
    for (std::thread& thread : threads) {
      thread.join();
    }
    return {{"secondsAlone", Json(SpreadOf(alone))},
            {"secondsOfAllAtOnce", SecondsSince(start)},
            {"cpuMsPerChannel", count > 0 ? (ProcessorTime(getpid()) - cpu) / 1e6 / count : 0}};
  }

  nlohmann::json Facts(const ProcessFacts& before) const {
    const ProcessFacts now = FactsOf(getpid());
    return {{"residentKbPerChannel", (now.residentKb - before.residentKb) / plan_.streams},
            {"threads", now.threads - before.threads},
            {"descriptors", now.descriptors - before.descriptors}};
  }

  static double SecondsSince(std::int64_t start) { return static_cast<double>(Stamp::Now() - start) / 1e9; }

  const Plan plan_;
  const double outageSeconds_;
  Board& board_;
  Processes sender_;
  std::vector<std::unique_ptr<WaitingCamera>> cameras_;
};

void Print(const nlohmann::json& result) {
  const auto number = [&](const char* part, const char* name) { return result[part][name].get<double>(); };
  const auto times = [&](const char* part, const char* name) {
    const auto& spread = result[part][name];
    char text[80];
    std::snprintf(text, sizeof(text), "%.2f (%.2f to %.2f)", spread["median"].get<double>(),
                  spread["least"].get<double>(), spread["most"].get<double>());
    return std::string(text);
  };
  const int channels = result["channels"];
  std::printf("| %d channels | value |\n|---|---|\n", channels);
  std::printf("| all StartCapture calls, s | %.2f |\n", number("start", "callsSeconds"));
  std::printf("| StartCapture to first frame, s | %s |\n", times("start", "secondsToFrame").c_str());
  std::printf("| processor time of a start, ms/channel | %.2f |\n", number("start", "cpuMsPerChannel"));
  std::printf("| memory while streaming, kB/channel | %.0f |\n", number("running", "residentKbPerChannel"));
  std::printf("| threads, descriptors | %.0f, %.0f |\n", number("running", "threads"),
              number("running", "descriptors"));
  std::printf("| all cameras gone for %.0f s: processor time, %% of a core per channel | %.3f |\n",
              number("outage", "seconds"), number("outage", "percentOfCorePerChannel"));
  std::printf("| channels that heard OnNoData | %.0f |\n", number("outage", "channelsTold"));
  std::printf("| cameras back to first frame, s | %s |\n", times("return", "secondsToFrame").c_str());
  std::printf("| one StopCapture, s | %s |\n", times("stop", "secondsAlone").c_str());
  std::printf("| all StopCapture at once, s | %.2f |\n", number("stop", "secondsOfAllAtOnce"));
  std::printf("| left afterwards: threads, descriptors, kB/channel | %.0f, %.0f, %.0f |\n",
              number("stopped", "threads"), number("stopped", "descriptors"),
              number("stopped", "residentKbPerChannel"));
}

int Run(int argc, char** argv) {
  CLI::App app("Starts, loses and stops hundreds of channels at once.");
  Plan plan{.streams = 400, .framesPerSecond = 4};
  double outage = 12;
  std::string jsonFile;
  app.add_option("--channels", plan.streams, "Number of channels")->check(CLI::Range(1, kMaxStreams));
  app.add_option("--fps", plan.framesPerSecond, "Frames per second of each")->check(CLI::Range(1, 100));
  app.add_option("--outage", outage, "Seconds without cameras");
  app.add_option("--json", jsonFile, "Also write the results there");
  CLI11_PARSE(app, argc, argv);
  AllowDescriptors();
  CutEarly(true);
  const nlohmann::json result = Storm(plan, outage).Run();
  Print(result);
  if (!jsonFile.empty()) {
    std::ofstream(jsonFile) << result.dump(2) << "\n";
  }
  std::fflush(stdout);
  return 0;
}

}  // namespace
}  // namespace kolvex_bench

int main(int argc, char** argv) { return kolvex_bench::Main("bench_scale", &kolvex_bench::Run, argc, argv); }
