#include "simcam/device/Inputs.h"

#include <utility>

#include "simcam/base/Text.h"

namespace simcam {

std::optional<PinStyle> ParsePinStyle(std::string_view text) {
  constexpr std::pair<std::string_view, PinStyle> kStyles[] = {{"normal", PinStyle::Normal},
                                                               {"reversed", PinStyle::Reversed},
                                                               {"doubled", PinStyle::Doubled},
                                                               {"upper", PinStyle::Upper},
                                                               {"missing", PinStyle::Missing}};
  for (const auto& [name, style] : kStyles) {
    if (name == text) return style;
  }
  return std::nullopt;
}

Inputs::Inputs(EventLoop& loop, unsigned count, std::uint64_t seed)
    : levels_(count),
      dice_(seed),
      walkTimer_(loop, [this] { Step(); }),
      scriptTimer_(loop, [this] { NextEvent(); }) {}

bool Inputs::Set(unsigned index, bool high) {
  if (index >= levels_.size()) {
    return false;
  }
  levels_[index] = high;
  return true;
}

void Inputs::Walk(Milliseconds step) {
  walkTimer_.Stop();
  if (step.count() > 0 && !levels_.empty()) {
    walkTimer_.StartRepeating(step);
  }
}

void Inputs::Step() {
  const auto index = static_cast<std::size_t>(dice_() % levels_.size());
  levels_[index] = !levels_[index];
}

bool Inputs::Play(std::string_view script) {
  constexpr std::string_view kLoop = "loop:";
  const bool loop = script.starts_with(kLoop);
  std::vector<Event> events;
  for (const std::string_view item : Split(script.substr(loop ? kLoop.size() : 0), ';')) {
    if (item.empty()) {
      continue;
    }
    const std::size_t slash = item.find('/');
    const std::size_t equals = item.find('=');
    if (slash == std::string_view::npos || equals == std::string_view::npos || equals < slash) {
      return false;
    }
    const auto at = ParseNumber(item.substr(0, slash), 0, 86'400'000);
    const auto input = ParseNumber(item.substr(slash + 1, equals - slash - 1), 1, levels_.size());
    const auto level = ParseNumber(item.substr(equals + 1), 0, 1);
    if (!at || !input || !level || (!events.empty() && Milliseconds(*at) < events.back().at)) {
      return false;
    }
    events.push_back({Milliseconds(*at), static_cast<unsigned>(*input) - 1, *level == 1});
  }
  scriptTimer_.Stop();
  script_ = std::move(events);
  position_ = 0;
  // A loop of no length would never let go of the thread.
  loop_ = loop && !script_.empty() && script_.back().at.count() > 0;
  if (!script_.empty()) {
    scriptTimer_.StartOnce(script_.front().at);
  }
  return true;
}

void Inputs::NextEvent() {
  const Event& event = script_[position_];
  levels_[event.index] = event.high;
  ++position_;
  if (position_ < script_.size()) {
    scriptTimer_.StartOnce(script_[position_].at - event.at);
  } else if (loop_) {
    position_ = 0;
    scriptTimer_.StartOnce(script_.front().at);
  }
}

}  // namespace simcam
