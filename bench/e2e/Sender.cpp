#include "e2e/Sender.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "e2e/Camera.h"
#include "e2e/FrameSender.h"

namespace kolvex_bench {

namespace {

int readyPipe[2];
void SayReady() { static_cast<void>(!write(readyPipe[1], "", 1)); }

}  // namespace

void StartSender(Processes& processes, const Plan& plan, Board& board, int rtspPlace) {
  if (pipe2(readyPipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  processes.Fork([&] { RunSender(plan, board, rtspPlace, &SayReady); });
  close(readyPipe[1]);
  char byte = 0;
  const bool ready = read(readyPipe[0], &byte, 1) == 1;
  close(readyPipe[0]);
  if (!ready) {
    throw std::runtime_error("the sender didn't start");
  }
}

void RunSender(const Plan& plan, Board& board, int rtspPlace, void (*ready)()) {
  const auto count = static_cast<std::size_t>(plan.streams);
  CameraControl control(board.places[static_cast<std::size_t>(rtspPlace)].targets, plan.streams);
  std::thread([&] { control.Serve(board.absent); }).detach();
  const auto states = std::make_unique<std::array<std::array<StreamState, kMaxStreams>, Board::kPlaces>>();
  FrameSender sender(plan);
  ready();

  using Clock = std::chrono::steady_clock;
  constexpr auto kMostLag = std::chrono::milliseconds(200);
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
      StreamState& state = (*states)[static_cast<std::size_t>(active)][i];
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

}  // namespace kolvex_bench
