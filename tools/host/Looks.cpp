#include "Looks.h"

#include <algorithm>

namespace kolvex_host {

namespace {

/// Each look may ask a camera for one more stream; a network of hundreds that has gone down needs no storm.
constexpr std::ptrdiff_t kMostAtATime = 8;

}  // namespace

void Looks::Begin(std::size_t stream, Find find) {
  if (!HasBegun(stream)) {
    looks_[stream].find = std::move(find);
    StartWaiting();
  }
}

void Looks::StartWaiting() {
  std::ptrdiff_t running = std::count_if(looks_.begin(), looks_.end(), [](const auto& entry) {
    return entry.second.thread.joinable() && !entry.second.done;
  });
  for (auto& entry : looks_) {
    auto& look = entry.second;
    if (running < kMostAtATime && !look.thread.joinable()) {
      ++running;
      look.thread = std::jthread([&look](std::stop_token stop) {
        look.reason = look.find(std::move(stop));
        look.done = true;
      });
    }
  }
}

bool Looks::AreDone() {
  StartWaiting();
  return std::all_of(looks_.begin(), looks_.end(), [](const auto& entry) { return entry.second.done.load(); });
}

bool Looks::IsDone(std::size_t stream) const {
  const auto found = looks_.find(stream);
  return found != looks_.end() && found->second.done;
}

const Reason* Looks::Result(std::size_t stream) const {
  return IsDone(stream) && looks_.at(stream).reason ? &*looks_.at(stream).reason : nullptr;
}

}  // namespace kolvex_host
