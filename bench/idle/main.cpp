// What cameras cost that give no video: processor time and memory of each, with its threads. They are idle, absent or
// silent, or their inputs are polled, which a bare poller does too. Every state is a process with many such cameras, and
// one with a single one, which carries what a process needs once; all run at once. Needs a network namespace of its own
// (bench/run.sh).
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <deque>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "e2e/Camera.h"
#include "idle/BarePoller.h"
#include "kolvex/ICaptureIOApi.h"
#include "support/HostCamera.h"
#include "support/Listener.h"
#include "support/Main.h"
#include "support/Processes.h"
#include "support/Statistics.h"

namespace kolvex_bench {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::uint16_t kControlPort = 80;       // CameraControl's: it answers everything, but sends no packet
constexpr std::uint16_t kRefusedPort = 8001;     // nobody listens
constexpr std::uint16_t kUnansweredPort = 8002;  // connects get no answer at all
constexpr std::uint16_t kSilentPort = 8003;      // connects succeed, and that is all
// Requests are answered; the connection is then closed or kept. What polls there is counted together.
constexpr CameraPorts kClosing{8004, 0, false};
constexpr CameraPorts kKeeping{8005, 0, true};
constexpr double kPollSeconds = 2;

enum class Use { Open, Capture, Inputs, InputsAndOutput, Bare };

struct State {
  const char* name;
  Use use;
  std::uint16_t port;
};
constexpr State kStates[] = {
    {"opened, nothing started", Use::Open, kRefusedPort},
    {"capture, connection refused", Use::Capture, kRefusedPort},
    {"capture, connect unanswered", Use::Capture, kUnansweredPort},
    {"capture, says nothing", Use::Capture, kSilentPort},
    {"capture, plays but sends no packet", Use::Capture, kControlPort},
    {"inputs, connection refused", Use::Inputs, kRefusedPort},
    {"inputs, connect unanswered", Use::Inputs, kUnansweredPort},
    {"inputs, says nothing", Use::Inputs, kSilentPort},
    {"inputs, bare poller, connection closed", Use::Bare, kClosing.cgi},
    {"inputs, connection closed", Use::Inputs, kClosing.cgi},
    {"inputs, bare poller, connection kept", Use::Bare, kKeeping.cgi},
    {"inputs, connection kept", Use::Inputs, kKeeping.cgi},
    {"inputs and an output, connection kept", Use::InputsAndOutput, kKeeping.cgi},
};

class IdleCamera : public HostCamera, public sarnevo::ICaptureIOCallback {
 public:
  IdleCamera(int index, const State& state) : HostCamera(CameraAddress(index)), state_(state) {}

  void Begin(const DriverLibrary& library) {
    const Use use = state_.use;
    auto* const driver = library.create();
    bool good = driver->Open(nullptr, this, this);
    if (good && use == Use::Capture) {
      good = driver->GetVideoCapture()->StartCapture(0, this, this);
    } else if (good && use != Use::Open) {
      good = driver->GetCaptureIO()->SetCallback(this) && driver->GetCaptureIO()->Start();
    }
    if (!good) {
      throw std::runtime_error("the driver refused a camera");
    }
  }

  u16 GetPort() override { return state_.port; }
  u32 GetInputCount() override { return 2; }
  u32 GetOutputCount() override { return state_.use == Use::InputsAndOutput ? 1 : 0; }
  bool OnFrame(sarnevo::ipcapture::IFrame* /*frame*/) override { return true; }
  void OnInputChanged(u32 /*index*/, u32 /*state*/) override {}
  void OnIOFailure() override {}
  void Slot1() override {}
  void Slot3() override {}
  void Slot4() override {}

 private:
  const State& state_;
};

// Begins with all cameras, spread evenly over two rounds of polls; they go with the process.
void Begin(const State& state, int first, int count) {
  const DriverLibrary library(KOLVEX_LIBRARY);
  for (int i = 0; i < count; ++i) {
    if (state.use == Use::Bare) {
      PollBare(CameraAddress(first + i), state.port, state.port == kKeeping.cgi);
    } else {
      (new IdleCamera(first + i, state))->Begin(library);
    }
    std::this_thread::sleep_for(Seconds(2 * kPollSeconds / count));
  }
}

// A full queue of connections: the kernel drops each further attempt, as if nobody were there.
void FillUnanswered() {
  ListenOn(kUnansweredPort, 0);
  for (int i = 0; i < 4; ++i) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kUnansweredPort);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(descriptor, reinterpret_cast<sockaddr*>(&to), sizeof(to));
  }
}

[[noreturn]] void AcceptInSilence() {
  const int listener = ListenOn(kSilentPort, 4096);
  std::deque<int> connections;
  for (;;) {
    connections.push_back(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (connections.size() > 4096) {
      close(connections.front());  // long given up by its client
      connections.pop_front();
    }
  }
}

struct Options {
  int cameras = 200;
  int windows = 3;
  double seconds = 8;  // a whole round of the slowest: 5 s of waiting and 3 s of pause
  std::string jsonFile;
};

// A figure for a camera that wasn't polled would be a good one.
void CheckPolls(std::uint64_t polls, const CameraPorts& ports, int cameras, Seconds time) {
  const auto pollers = std::count_if(std::begin(kStates), std::end(kStates),
                                     [&](const State& state) { return state.port == ports.cgi; });
  const double expected = static_cast<double>(pollers) * cameras * time.count() / kPollSeconds;
  if (std::abs(static_cast<double>(polls) - expected) > 0.1 * expected) {
    throw std::runtime_error("the cameras answered " + std::to_string(polls) + " polls instead of " +
                             std::to_string(expected));
  }
}

nlohmann::json Measure(const Options& options) {
  FillUnanswered();
  Board& board = SharedBoard();
  CameraControl control(board.places[0], options.cameras + 1);
  CameraControl closing(board.places[1], options.cameras + 1, kClosing);
  CameraControl keeping(board.places[2], options.cameras + 1, kKeeping);
  Processes servers;
  for (CameraControl* const one : {&control, &closing, &keeping}) {
    servers.Fork([&] { one->Serve(board.absent); });
  }
  servers.Fork([] { AcceptInSilence(); });
  Processes many;
  Processes single;
  for (const State& state : kStates) {
    many.Fork([&] { Begin(state, 1, options.cameras); });
    single.Fork([&] { Begin(state, 0, 1); });
  }
  std::this_thread::sleep_for(Seconds(16));  // until the last has been through its first round

  std::vector<std::vector<double>> percents(std::size(kStates));
  const std::uint64_t polls[] = {board.places[1].requests, board.places[2].requests};
  const auto began = std::chrono::steady_clock::now();
  for (int window = 0; window < options.windows; ++window) {
    std::vector<double> before;
    for (const pid_t process : many.Ids()) {
      before.push_back(ProcessorTime(process));
    }
    std::this_thread::sleep_for(Seconds(options.seconds));
    for (std::size_t i = 0; i < std::size(kStates); ++i) {
      const double taken = ProcessorTime(many.Ids()[i]) - before[i];
      percents[i].push_back(taken / (options.seconds * 1e9) / options.cameras * 100);
    }
  }
  const Seconds measured = std::chrono::steady_clock::now() - began;
  CheckPolls(board.places[1].requests - polls[0], kClosing, options.cameras + 1, measured);
  CheckPolls(board.places[2].requests - polls[1], kKeeping, options.cameras + 1, measured);
  many.Check("a process of cameras");
  single.Check("a process of one camera");

  nlohmann::json rows;
  for (std::size_t i = 0; i < std::size(kStates); ++i) {
    const ProcessFacts all = FactsOf(many.Ids()[i]);
    const ProcessFacts one = FactsOf(single.Ids()[i]);
    const double more = options.cameras - 1;
    rows.push_back({{"state", kStates[i].name},
                    {"cameras", options.cameras},
                    {"percentOfCore", Json(SpreadOf(percents[i]))},
                    {"residentKb", (all.residentKb - one.residentKb) / more},
                    {"threads", (all.threads - one.threads) / more},
                    {"descriptors", (all.descriptors - one.descriptors) / more}});
  }
  many.End(SIGKILL);
  single.End(SIGKILL);
  return rows;
}

void Print(const nlohmann::json& rows, const Options& options) {
  std::printf("%d cameras in each state, %d windows of %.0f s; each figure is one camera's.\n\n",
              options.cameras, options.windows, options.seconds);
  std::printf(
      "| state | us/s | %% of a core | resident kB | threads | descriptors |\n"
      "|---|---:|---:|---:|---:|---:|\n");
  for (const nlohmann::json& row : rows) {
    const nlohmann::json& percent = row["percentOfCore"];
    std::printf("| %s | %.0f | %.4f (%.4f to %.4f) | %.0f | %.1f | %.1f |\n",
                row["state"].get<std::string>().c_str(), 1e4 * percent["median"].get<double>(),
                percent["median"].get<double>(), percent["least"].get<double>(), percent["most"].get<double>(),
                row["residentKb"].get<double>(), row["threads"].get<double>(),
                row["descriptors"].get<double>());
  }
}

int Run(int argc, char** argv) {
  CLI::App app("Measures what cameras cost the library that are idle, silent, absent or polled.");
  Options options;
  app.add_option("--cameras", options.cameras, "Cameras in each state")->check(CLI::Range(2, kMaxStreams - 1));
  app.add_option("--windows", options.windows, "Measured windows")->check(CLI::Range(1, 100));
  app.add_option("--seconds", options.seconds, "Length of a window")->check(CLI::PositiveNumber);
  app.add_option("--json", options.jsonFile, "Also write the results there");
  CLI11_PARSE(app, argc, argv);
  AllowDescriptors();
  const nlohmann::json rows = Measure(options);
  Print(rows, options);
  if (!options.jsonFile.empty()) {
    std::ofstream(options.jsonFile) << rows.dump(2) << "\n";
  }
  return 0;
}

}  // namespace
}  // namespace kolvex_bench

int main(int argc, char** argv) { return kolvex_bench::Main("bench_idle", &kolvex_bench::Run, argc, argv); }
