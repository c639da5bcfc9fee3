#include "e2e/Lineup.h"

#include <arpa/inet.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "e2e/Counters.h"
#include "e2e/Peers.h"
#include "e2e/Receivers.h"
#include "e2e/Sender.h"

namespace kolvex_bench {

namespace {

using namespace std::chrono_literals;

constexpr const char* kNames[] = {"the bare receiver", "the library", "GStreamer",
                                  "GStreamer with jitter buffer", "FFmpeg"};

// What the library asks for its receive threads, and the bare receiver too. A thread of lower priority wakes later,
// finds more packets at once and waits less often: the peers get the same, so that the rows can be compared.
constexpr int kReceivePriority = -5;

// Even ones, and free above them for RTCP.
std::vector<std::uint16_t> PeerPorts(Who who, int streams) {
  std::vector<std::uint16_t> ports;
  for (int i = 0; i < streams; ++i) {
    ports.push_back(static_cast<std::uint16_t>(10'000 + who * 2000 + 2 * i));
  }
  return ports;
}

template <typename Condition>
void WaitUntil(Condition condition, const std::string& what, std::chrono::seconds time = 120s) {
  const auto limit = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error(what + " doesn't come up");
    }
    std::this_thread::sleep_for(20ms);
  }
}

std::shared_ptr<const std::string> MakeScratch() {
  std::string name = (std::filesystem::temp_directory_path() / "bench_e2e.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no folder for the peers' files");
  }
  return {new std::string(name), [](const std::string* made) {
            std::filesystem::remove_all(*made);
            delete made;
          }};
}

}  // namespace

Lineup::Lineup(const Plan& plan, Board& board, const std::vector<Who>& who)
    : plan_(plan), board_(board), who_(who), scratch_(MakeScratch()) {
  for (Place& place : board.places) {
    for (StreamTarget& target : place.targets) {
      target.playing = false;
    }
  }
  StartSender(sender_, plan, board, Library);
  // The library comes last, since its streams mustn't be silent for long.
  for (const Who one : {FFmpeg, GStreamer, GStreamerJitter, Bare, Library}) {
    if (std::find(who.begin(), who.end(), one) != who.end()) {
      Start(one);
    }
  }
}

void Lineup::Start(Who who) {
  Place& place = board_.places[static_cast<std::size_t>(who)];
  const auto streams = static_cast<std::uint64_t>(plan_.streams);
  const std::uint64_t before = place.arrivals.frames;
  board_.active = who;
  if (who == Bare || who == Library) {
    receivers_[who].Fork([&] {
      CountInto(place.calls);
      (who == Bare ? RunBaseline : RunLibrary)(plan_, board_, who);
    });
    WaitUntil(
        [&] {
          bool all = place.arrivals.frames - before >= 3 * streams;
          for (int i = 0; i < plan_.streams; ++i) {
            all = all && place.targets[static_cast<std::size_t>(i)].playing;
          }
          return all;
        },
        kNames[who]);
  } else {
    StartPeer(who);
  }
  board_.active = Board::kNobody;
  receivers_[who].Check(kNames[who]);
}

void Lineup::StartPeer(Who who) {
  const std::vector<std::uint16_t> ports = PeerPorts(who, plan_.streams);
  if (who == FFmpeg) {
    // A process each: the inputs of one process wait for each other, and the kernel drops packets meanwhile.
    for (const std::uint16_t port : ports) {
      const std::string name = Scratch(std::to_string(port));
      std::ofstream(name + ".sdp") << SessionDescription(port);
      receivers_[who].Execute(FFmpegCommand(name + ".sdp"), name + ".log", kReceivePriority);
    }
  } else {
    receivers_[who].Execute(GStreamerCommand(ports, who == GStreamerJitter), Scratch(std::to_string(who)),
                            kReceivePriority);
  }
  WaitUntil([&] { return AreBound(ports); }, kNames[who]);
  for (std::size_t i = 0; i < ports.size(); ++i) {
    StreamTarget& target = board_.places[static_cast<std::size_t>(who)].targets[i];
    target.to.sin_family = AF_INET;
    target.to.sin_port = htons(ports[i]);
    target.to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    target.playing.store(true, std::memory_order_release);
  }
  std::this_thread::sleep_for(who == FFmpeg ? 2s : 500ms);
}

std::string Lineup::Scratch(const std::string& name) const { return *scratch_ + "/" + name; }

double Lineup::ProcessorTime(Who who) const {
  double all = 0;
  for (const pid_t id : receivers_[who].Ids()) {
    all += kolvex_bench::ProcessorTime(id);
  }
  return all;
}

ProcessFacts Lineup::Facts(Who who) const {
  ProcessFacts all;
  for (const pid_t id : receivers_[who].Ids()) {
    all.Add(FactsOf(id));
  }
  return all;
}

void Lineup::Check() {
  sender_.Check("the sender");
  for (const Who one : who_) {
    receivers_[one].Check(kNames[one]);
  }
}

double Lineup::EndAndCountFFmpegFrames() {
  // It looks at the signal when a packet comes.
  board_.active = FFmpeg;
  receivers_[FFmpeg].End(SIGINT);
  board_.active = Board::kNobody;
  double frames = 0;
  for (const std::uint16_t port : PeerPorts(FFmpeg, plan_.streams)) {
    frames += FramesOf(Scratch(std::to_string(port)) + ".log");
  }
  return frames;
}

}  // namespace kolvex_bench
