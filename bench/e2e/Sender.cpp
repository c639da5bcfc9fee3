#include "e2e/Sender.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <queue>
#include <stdexcept>
#include <thread>
#include <vector>

#include "e2e/Camera.h"
#include "e2e/FrameSender.h"

namespace kolvex_bench {

namespace {

int readyPipe[2];
void SayReady() { static_cast<void>(!write(readyPipe[1], "", 1)); }

using States = std::array<std::array<StreamState, kMaxStreams>, Board::kPlaces>;
using Clock = std::chrono::steady_clock;
constexpr auto kMostLag = std::chrono::milliseconds(200);

// Each frame as fast as it goes, the streams evenly spread over the frame interval.
[[noreturn]] void SendWholeFrames(const Plan& plan, Board& board, FrameSender& sender, States& states) {
  const auto count = static_cast<std::size_t>(plan.streams);
  const auto step = std::chrono::nanoseconds(std::chrono::seconds(1)) / (plan.framesPerSecond * plan.streams);
  for (auto due = Clock::now();;) {
    for (std::size_t i = 0; i < count; ++i, due += step) {
      std::this_thread::sleep_until(due);
      if (Clock::now() - due > kMostLag) {
        board.late.fetch_add(static_cast<std::uint64_t>((Clock::now() - due) / step),
                             std::memory_order_relaxed);
        due = Clock::now();
      }
      const int active = board.active.load(std::memory_order_relaxed);
      if (active == Board::kNobody) {
        continue;
      }
      Place& place = board.places[static_cast<std::size_t>(active)];
      StreamState& state = states[static_cast<std::size_t>(active)][i];
      if (place.targets[i].playing.load(std::memory_order_acquire)) {
        const std::size_t packets = sender.Send(state, static_cast<int>(i), place.targets[i].to);
        place.sent.packets.fetch_add(packets, std::memory_order_relaxed);
        place.sent.frames.fetch_add(1, std::memory_order_relaxed);
      } else {
        state = {};
      }
    }
  }
}

// A frame under way, and which of its packets is due when.
struct Departure {
  Clock::time_point due;
  std::size_t stream = 0;
  std::size_t packet = 0;
  int place = Board::kNobody;  // the receiver whose frame it is

  bool operator>(const Departure& other) const { return due > other.due; }
};

// Sleeps while there is time, and watches the clock for the rest, so that the pace is kept to the microsecond.
void WaitFor(Clock::time_point due) {
  constexpr auto kWatched = std::chrono::microseconds(300);
  if (due - Clock::now() > kWatched) {
    std::this_thread::sleep_until(due - kWatched);
  }
  while (Clock::now() < due) {
  }
}

// The packets of a frame at their distance, and the frames of the streams between each other.
[[noreturn]] void SendPaced(const Plan& plan, Board& board, FrameSender& sender, States& states) {
  const auto interval = std::chrono::nanoseconds(std::chrono::seconds(1)) / plan.framesPerSecond;
  const auto distance = std::chrono::microseconds(plan.distanceUs);
  std::priority_queue<Departure, std::vector<Departure>, std::greater<>> departures;
  for (std::size_t i = 0; i < static_cast<std::size_t>(plan.streams); ++i) {
    departures.push({Clock::now() + interval * static_cast<int>(i) / plan.streams, i});
  }
  for (;;) {
    Departure next = departures.top();
    departures.pop();
    WaitFor(next.due);
    const auto began = next.due - distance * static_cast<int>(next.packet);
    bool last = true;
    if (next.packet == 0) {
      next.place = board.active.load(std::memory_order_relaxed);
    }
    if (next.place != Board::kNobody) {
      Place& place = board.places[static_cast<std::size_t>(next.place)];
      StreamState& state = states[static_cast<std::size_t>(next.place)][next.stream];
      StreamTarget& target = place.targets[next.stream];
      if (target.playing.load(std::memory_order_acquire)) {
        board.lateness.Add(std::chrono::nanoseconds(Clock::now() - next.due).count());
        place.sent.frames.fetch_add(next.packet == 0 ? 1 : 0, std::memory_order_relaxed);
        last = sender.SendPacket(state, static_cast<int>(next.stream), next.packet, target.to);
        place.sent.packets.fetch_add(1, std::memory_order_relaxed);
      } else {
        state = {};
      }
    }
    if (last) {
      auto again = began + interval;
      if (Clock::now() - again > kMostLag) {
        board.late.fetch_add(static_cast<std::uint64_t>((Clock::now() - again) / interval),
                             std::memory_order_relaxed);
        again = Clock::now();
      }
      departures.push({again, next.stream});
    } else {
      ++next.packet;
      next.due += distance;
      departures.push(next);
    }
  }
}

}  // namespace

void StartSender(Processes& processes, const Plan& plan, Board& board, int rtspPlace) {
  if (pipe2(readyPipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  processes.Fork([&] {
    StayOn(Side::Sender);
    RunSender(plan, board, rtspPlace, &SayReady);
  });
  close(readyPipe[1]);
  char byte = 0;
  const bool ready = read(readyPipe[0], &byte, 1) == 1;
  close(readyPipe[0]);
  if (!ready) {
    throw std::runtime_error("the sender didn't start");
  }
}

void RunSender(const Plan& plan, Board& board, int rtspPlace, void (*ready)()) {
  CameraControl control(board.places[static_cast<std::size_t>(rtspPlace)], plan.streams);
  std::thread([&] { control.Serve(board.absent); }).detach();
  const auto states = std::make_unique<States>();
  FrameSender sender(plan);
  ready();

  if (plan.arrival == Arrival::Paced) {
    SendPaced(plan, board, sender, *states);
  }
  SendWholeFrames(plan, board, sender, *states);
}

}  // namespace kolvex_bench
