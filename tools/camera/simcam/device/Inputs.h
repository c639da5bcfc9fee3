#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

#include "simcam/base/EventLoop.h"

namespace simcam {

/// How the pin programs write their pairs, for clients that should take any order.
enum class PinStyle : std::uint8_t { Normal, Reversed, Doubled, Upper, Missing };
std::optional<PinStyle> ParsePinStyle(std::string_view text);

/// The digital inputs: set by hand, by a script, or on a random walk. Loop thread only.
class Inputs {
 public:
  Inputs(EventLoop& loop, unsigned count, std::uint64_t seed);

  unsigned count() const { return static_cast<unsigned>(levels_.size()); }
  bool high(unsigned index) const { return levels_[index]; }
  const std::vector<bool>& levels() const { return levels_; }
  PinStyle style() const { return style_; }
  void SetStyle(PinStyle style) { style_ = style; }

  /// False when there is no such input. Doesn't end a script or walk.
  bool Set(unsigned index, bool high);

  /// One random input changes each `step`; 0 ends the walk.
  void Walk(Milliseconds step);

  /// "[loop:]MS/INPUT=LEVEL;..." with times from now and inputs from 1, for example
  /// "loop:500/1=1;1000/1=0". An empty text ends the script. False when it can't be read.
  bool Play(std::string_view script);

 private:
  struct Event {
    Milliseconds at;
    unsigned index;
    bool high;
  };
  void Step();
  void NextEvent();

  std::vector<bool> levels_;
  PinStyle style_ = PinStyle::Normal;
  std::mt19937_64 dice_;
  Timer walkTimer_;
  Timer scriptTimer_;
  std::vector<Event> script_;
  std::size_t position_ = 0;
  bool loop_ = false;
};

}  // namespace simcam
