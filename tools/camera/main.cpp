#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>

#include "Options.h"
#include "simcam/CameraFarm.h"
#include "simcam/base/Text.h"

namespace {

/// A camera has four sockets and its clients' connections; the usual limit of 1024 ends at 200 cameras.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

struct Totals {
  unsigned playing = 0;
  std::uint64_t frames = 0, bytes = 0, dropped = 0, requests = 0;
};

Totals Count(simcam::CameraFarm& farm) {
  Totals totals;
  for (const auto& camera : farm.cameras()) {
    const simcam::CameraStatus status = camera->Status();
    totals.playing += status.playing;
    totals.frames += status.counters.framesSent;
    totals.bytes += status.counters.bytes;
    totals.dropped += status.counters.framesDropped;
    totals.requests += status.counters.httpRequests + status.counters.rtspRequests;
  }
  return totals;
}

void PrintStatus(simcam::CameraFarm& farm, const Totals& now, const Totals& before, double seconds) {
  std::cerr << simcam::Format(
      "\r%zu cameras, %u streams, %zu encoders, %.0f frames/s, %.0f kB/s, %llu requests, %llu dropped  ",
      farm.cameras().size(), now.playing, farm.encoders(),
      static_cast<double>(now.frames - before.frames) / seconds,
      static_cast<double>(now.bytes - before.bytes) / seconds / 1000,
      static_cast<unsigned long long>(now.requests), static_cast<unsigned long long>(now.dropped));
}

/// Switches all cameras on; a sentence when one can't be.
std::string Start(simcam::CameraFarm& farm, const Options& options) {
  std::string error;
  for (const simcam::CameraSettings& settings : options.cameras) {
    simcam::SimulatedCamera* const camera = farm.Add(settings, error);
    if (camera == nullptr) {
      return error;
    }
    if (error = camera->Control(options.faults); !error.empty()) {
      return error;
    }
    const simcam::CameraStatus status = camera->Status();
    std::cout << simcam::Format("camera %s:%u  group %s  %s  %s  serial %u\n", status.address.c_str(),
                                settings.httpPort, status.group.c_str(), status.model.c_str(),
                                status.format.c_str(), status.head.protocol);
  }
  if (options.controlPort != 0 && !farm.ServeControl(options.controlAddress, options.controlPort, error)) {
    return error;
  }
  std::cout << "ready" << std::endl;
  return {};
}

/// Until SIGINT or SIGTERM, which are blocked in all threads, or the end of the time.
void Serve(simcam::CameraFarm& farm, const Options& options, const sigset_t& ends) {
  const bool showStatus = !options.quiet && isatty(STDERR_FILENO) != 0;
  const auto start = std::chrono::steady_clock::now();
  auto shown = start;
  Totals before;
  for (;;) {
    const timespec second{1, 0};
    if (sigtimedwait(&ends, nullptr, &second) > 0) {
      break;
    }
    const auto now = std::chrono::steady_clock::now();
    if (options.seconds > 0 && now - start >= std::chrono::seconds(options.seconds)) {
      break;
    }
    if (showStatus) {
      const Totals totals = Count(farm);
      PrintStatus(farm, totals, before, std::chrono::duration<double>(now - shown).count());
      before = totals;
      shown = now;
    }
  }
  if (showStatus) {
    std::cerr << "\n";
  }
}

}  // namespace

int main(int count, char** arguments) {
  int exitCode = 0;
  const std::optional<Options> options = ReadOptions(count, arguments, exitCode);
  if (!options) {
    return exitCode;
  }
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  RaiseDescriptorLimit();

  simcam::CameraFarm farm(options->encoderThreads);
  if (const std::string error = Start(farm, *options); !error.empty()) {
    std::cerr << "kolvex-camera: " << error << "\n";
    return 1;
  }
  Serve(farm, *options, ends);
  return 0;
}
