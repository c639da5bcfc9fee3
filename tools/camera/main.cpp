#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
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

constexpr const char* kErase = "\r\x1b[K";  // ECMA-48: the line, whatever its length was

void PrintStatus(simcam::CameraFarm& farm, const Totals& now, const Totals& before, double seconds) {
  winsize size{};
  const std::size_t columns =
      ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1U : 79U;
  const std::string line = simcam::Format(
      "%zu cameras, %u streams, %zu encoders, %.0f frames/s, %.0f kB/s, %llu requests, %llu dropped",
      farm.cameras().size(), now.playing, farm.encoders(),
      static_cast<double>(now.frames - before.frames) / seconds,
      static_cast<double>(now.bytes - before.bytes) / seconds / 1000,
      static_cast<unsigned long long>(now.requests), static_cast<unsigned long long>(now.dropped));
  std::cerr << kErase << line.substr(0, columns);  // a line that wraps couldn't be erased
}

/// What is wrong with the cameras and the commands for them; empty when nothing is.
std::string Check(simcam::CameraFarm& farm, const Options& options) {
  for (const simcam::CameraSettings& settings : options.cameras) {
    if (const std::string error = farm.Check(settings, options.faults); !error.empty()) {
      return error;
    }
  }
  return {};
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
    auto left = std::chrono::nanoseconds(std::chrono::seconds(1));
    if (options.duration.count() > 0) {
      left = std::clamp<std::chrono::nanoseconds>(start + options.duration - std::chrono::steady_clock::now(),
                                                  std::chrono::nanoseconds(0), left);
    }
    const timespec wait{left.count() / 1'000'000'000, left.count() % 1'000'000'000};
    if (sigtimedwait(&ends, nullptr, &wait) > 0) {
      break;
    }
    const auto now = std::chrono::steady_clock::now();
    if (options.duration.count() > 0 && now - start >= options.duration) {
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
    std::cerr << kErase;
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
  if (const std::string error = Check(farm, *options); !error.empty()) {
    std::cerr << "kolvex-camera: " << error << "\n";
    return 2;
  }
  if (const std::string error = Start(farm, *options); !error.empty()) {
    std::cerr << "kolvex-camera: " << error << "\n";
    return 1;
  }
  Serve(farm, *options, ends);
  return 0;
}
