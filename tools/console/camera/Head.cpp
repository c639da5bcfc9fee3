#include "camera/Head.h"

namespace kolvex_console {

using std::chrono::milliseconds;

namespace {

/// What a camera that answers needs for a stop and what is queued before it.
constexpr milliseconds kSettle{400};
/// A stop is repeated so often, every half second: half a minute.
constexpr int kMostStops = 60;
constexpr milliseconds kStopAgain{500};
/// At the end of the server, for a camera that doesn't take it: two seconds.
constexpr int kLastStops = 5;

}  // namespace

Head::Head(sarnevo::IIPPTZApi& api, std::function<void()> stopped, bool mayMove)
    : api_(api), stopped_(std::move(stopped)), stops_(mayMove ? kMostStops : 0), thread_([this] { Work(); }) {}

Head::~Head() {
  {
    const std::lock_guard guard(lock_);
    wish_ = {};
    ended_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void Head::Want(const kolvex_host::Movement& movement, int speed) {
  {
    const std::lock_guard guard(lock_);
    wish_ = {&movement, speed};
    holdsUntil_ = Clock::now() + kWishHolds;
  }
  wake_.notify_all();
}

void Head::Stop() {
  {
    const std::lock_guard guard(lock_);
    wish_ = {};
  }
  wake_.notify_all();
}

std::string Head::Moving() const {
  const std::lock_guard guard(lock_);
  return wish_.movement ? std::string(wish_.movement->name) : std::string();
}

void Head::Work() {
  if (stops_ != 0) {
    SendStop();
  }
  std::unique_lock guard(lock_);
  for (;;) {
    const auto isNew = [this] { return wish_ != sent_ || ended_; };
    if (wish_.movement) {
      if (!wake_.wait_until(guard, holdsUntil_, isNew) && Clock::now() >= holdsUntil_) {
        wish_ = {};  // nobody has said for a second that it should go on
      }
    } else if (stops_ != 0) {
      wake_.wait_for(guard, kStopAgain, isNew);
    } else {
      wake_.wait(guard, isNew);
    }
    const Wish wish = wish_;
    const bool ends = ended_;
    guard.unlock();
    Follow(wish);
    guard.lock();
    if (ends) {
      guard.unlock();
      MakeSure();
      return;
    }
  }
}

void Head::Follow(const Wish& wish) {
  if (wish != sent_) {
    // Neither a lens ends a movement nor the other way round.
    if (!wish.movement || (sent_.movement && sent_.movement->isLens != wish.movement->isLens)) {
      SendStop();
    }
    if (wish.movement) {
      stops_ = kMostStops;
      wish.movement->start(api_, wish.speed);
    }
    sent_ = wish;
    if (!wish.movement) {
      stops_ = kMostStops;
      stopped_();
    }
  } else if (!wish.movement && stops_ != 0) {
    if (failed_.exchange(false, std::memory_order_relaxed)) {
      --stops_;
      SendStop();
    } else {
      stops_ = 0;
      stopped_();
    }
  }
}

// A driver that is closed drops what still waits in its queue.
void Head::MakeSure() {
  for (int attempt = 0; attempt < kLastStops; ++attempt) {
    std::this_thread::sleep_until(lastStop_ + kSettle);
    if (!failed_.load(std::memory_order_relaxed)) {
      return;
    }
    SendStop();
  }
}

void Head::SendStop() {
  lastStop_ = Clock::now();
  failed_.store(false, std::memory_order_relaxed);
  api_.StopMove();
  api_.FocusNear(0);
  api_.IrisOpen(0);
}

}  // namespace kolvex_console
