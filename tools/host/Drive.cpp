#include "Drive.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <string>

#include "Terminal.h"

namespace kolvex_host {

const char* const kDriveKeys =
    "arrows, 2 4 6 8  pan and tilt        + -  zoom in and out\n"
    "1 3 7 9          both at once        n f  focus near and far\n"
    "< >              slower, faster      o c  iris open and close\n"
    "space            stop                q    end\n";

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{20};
/// Longer than the pause between two repeats of a held key, on any terminal.
constexpr milliseconds kRelease{300};
constexpr sarnevo::i32 kMaxSpeed = 16;

struct Key {
  std::string_view key;
  std::string_view movement;
};
constexpr auto kKeys = std::to_array<Key>({
    {"left", "left"},
    {"right", "right"},
    {"up", "up"},
    {"down", "down"},
    {"4", "left"},
    {"6", "right"},
    {"8", "up"},
    {"2", "down"},
    {"7", "left-up"},
    {"9", "right-up"},
    {"1", "left-down"},
    {"3", "right-down"},
    {"+", "zoom-in"},
    {"-", "zoom-out"},
    {"n", "focus-near"},
    {"f", "focus-far"},
    {"o", "iris-open"},
    {"c", "iris-close"},
});

class Driver {
 public:
  Driver(HeadSession& head, sarnevo::i32 speed) : head_(head), speed_(speed) { Show(); }
  ~Driver() { std::fputs("\n", stderr); }
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  /// False for the key that ends.
  bool Press(std::string_view key) {
    if (key == "q") {
      return false;
    }
    if (key == "<" || key == ">") {
      speed_ = std::clamp(speed_ + (key == "<" ? -1 : 1), 1, kMaxSpeed);
      Show();
    } else if (key == " ") {
      Release();
    } else if (const auto row = std::find_if(kKeys.begin(), kKeys.end(),
                                             [key](const Key& candidate) { return candidate.key == key; });
               row != kKeys.end()) {
      Start(*FindMovement(row->movement));
    }
    return true;
  }

  /// A key that has been let go ends its movement; a stop that the camera didn't take is repeated.
  void Tick() {
    if ((movement_ != nullptr && Clock::now() - pressed_ > kRelease) ||
        (movement_ == nullptr && head_.TakeFailure())) {
      Release();
    }
  }

 private:
  void Start(const Movement& movement) {
    pressed_ = Clock::now();
    if (movement_ == &movement && movementSpeed_ == speed_) {
      return;  // a repeat
    }
    if (movement_ != nullptr && movement_->isLens != movement.isLens) {
      head_.Halt();  // one doesn't end the other
    }
    head_.Move(movement, speed_);
    movement_ = &movement;
    movementSpeed_ = speed_;
    Show();
  }
  void Release() {
    head_.Halt();
    movement_ = nullptr;
    Show();
  }
  void Show() const {
    std::fprintf(stderr, "\r%-12s speed %-2d ", movement_ ? std::string(movement_->name).c_str() : "stopped",
                 speed_);
  }

  HeadSession& head_;
  sarnevo::i32 speed_;
  const Movement* movement_ = nullptr;
  sarnevo::i32 movementSpeed_ = 0;
  Clock::time_point pressed_;
};

}  // namespace

void Drive(HeadSession& head, StopSignal& stop, sarnevo::i32 speed) {
  Terminal terminal;
  std::fputs(kDriveKeys, stderr);
  KeyReader reader;
  Driver driver(head, speed);
  while (!stop.Wait(milliseconds(0), StopSignal::Second::Waits)) {
    const auto bytes = terminal.Read(kTick);
    if (!bytes) {
      return;
    }
    for (const std::string& key : reader.Split(*bytes)) {
      if (!driver.Press(key)) {
        return;
      }
    }
    driver.Tick();
  }
}

}  // namespace kolvex_host
