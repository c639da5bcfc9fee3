#include "hub/News.h"

#include <algorithm>

namespace kolvex_console {

using nlohmann::json;

namespace {

constexpr std::chrono::seconds kTick{1};

std::string Text(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

std::int64_t Milliseconds(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

bool News::Next(std::string& event) {
  const auto now = std::chrono::steady_clock::now();
  const std::uint64_t version = site_->Version();
  if (version == seen_ && now - tick_ < kTick) {
    return false;  // the usual case, at each picture of each viewer
  }
  const auto cameras = site_->Cameras();
  json names = json::array();
  for (const auto& [name, camera] : cameras) {
    names.push_back(name);
  }
  if (std::string text = Text({{"event", "cameras"}, {"names", names}}); text != names_) {
    event = names_ = std::move(text);
    std::erase_if(versions_, [&](const auto& told) {
      return std::none_of(cameras.begin(), cameras.end(),
                          [&](const auto& entry) { return entry.second.get() == told.first; });
    });
    return true;
  }
  for (const auto& [name, camera] : cameras) {
    const StateText state = camera->State();
    if (std::uint64_t& told = versions_[camera.get()]; told != state.version) {
      told = state.version;
      event = R"({"event":"camera","state":)" + *state.json + "}";
      return true;
    }
  }
  if (const auto lines = site_->LinesAfter(line_); !lines.empty()) {
    json told = json::array();
    for (const LogLine& line : lines) {
      told.push_back({{"number", line.number},
                      {"time", Milliseconds(line.time)},
                      {"camera", line.camera},
                      {"text", line.text}});
    }
    line_ = lines.back().number;
    event = Text({{"event", "log"}, {"lines", told}});
    return true;
  }
  seen_ = version;
  if (now - tick_ >= kTick) {
    tick_ = now;
    event = Text({{"event", "tick"}, {"time", Milliseconds(std::chrono::system_clock::now())}});
    return true;
  }
  return false;
}

}  // namespace kolvex_console
