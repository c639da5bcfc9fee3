#include "camera/HeadStation.h"

#include <algorithm>
#include <array>

#include "Failure.h"
#include "kolvex/IIPPTZDriver.h"

namespace kolvex_console {

using namespace sarnevo;
using kolvex_host::Failure;
using nlohmann::json;

namespace {

constexpr u32 kChannel = 0;
constexpr u32 kLongestName = 4096;  // bytes

Reply ToReply(i32 status) {
  switch (status) {
    case PtzDone:
      return JsonReply({{"done", true}});
    case PtzInvalidArgument:
      return Refusal(400, "The driver takes no names with the characters & ! < > ' or \".");
    case PtzAddFailed:
      return Refusal(502, "The camera, or the file of positions, refused the new position.");
    case PtzLimitReached:
      return Refusal(409, "The camera stores no more positions.");
    default:
      return Refusal(502, "There is no such position, or the camera refused.");
  }
}

}  // namespace

HeadStation::~HeadStation() {
  head_.store(nullptr);
  own_.reset();  // stops the head; the driver is still there to send it
}

void HeadStation::TakeMessage(unsigned level, const char* text) {
  if (Head* const head = head_.load(); head && level == DebugLevelFailure) {
    head->NoteFailure();
  }
  link_.log(text);
}

void HeadStation::Find() {
  try {
    driver_.emplace(*link_.library, link_.config, link_.login, noFrames_,
                    [this](const std::string&, unsigned level, const char* text) { TakeMessage(level, text); });
  } catch (const Failure& failure) {
    link_.log(failure.what());
    return;
  }
  IIPPTZDriver* const heads = (*driver_)->GetPTZDriver();
  api_ = heads ? heads->GetPTZApi(kChannel) : nullptr;
  if (!api_ || api_->IsPTZAvailable() == 0) {
    api_ = nullptr;
    driver_.reset();
    return;
  }
  // Where a head has come to rest may be a position.
  own_ = std::make_unique<Head>(
      *api_, [this] { desk_.Put([this] { Refresh(); }); }, mayMove_);
  head_.store(own_.get());
  Refresh();
}

void HeadStation::Refresh() {
  std::array<char, kLongestName> text{};
  std::vector<Position> positions;
  const u32 count = api_->GetPrepositionCount();
  for (u32 i = 0; i < count; ++i) {
    if (api_->GetPrepositionName(i, text.data(), kLongestName) == PtzDone) {
      positions.push_back({text.data(), nullptr, 0});
    }
  }
  const std::string here = api_->GetCurrentPreposition(text.data(), kLongestName) == PtzDone ? text.data() : "";
  // Only this thread writes the list. What reads pictures asks for the camera's name, so no lock is held.
  const std::vector<Position> before = positions_.value_or(std::vector<Position>());
  for (Position& position : positions) {
    const auto known = std::find_if(before.begin(), before.end(),
                                    [&](const Position& each) { return each.name == position.name; });
    if (known != before.end()) {
      position = *known;
    } else if ((position.picture = thumbnails_.read(position.name))) {
      position.version = ++pictures_;
    }
  }
  {
    const std::lock_guard guard(lock_);
    positions_ = std::move(positions);
    here_ = here;
  }
  link_.changed();
}

Reply HeadStation::Move(const std::string& movement, int speed) {
  Head* const head = head_.load();
  if (!head) {
    return Refusal(409, "The driver knows of no head at this camera.");
  }
  if (movement == "stop") {
    head->Stop();
  } else if (const kolvex_host::Movement* const known = kolvex_host::FindMovement(movement)) {
    head->Want(*known, speed);
  } else {
    return Refusal(400, "There is no such movement.");
  }
  return JsonReply({{"moving", head->Moving()}});
}

void HeadStation::Stop() {
  if (Head* const head = head_.load()) {
    head->Stop();
  }
}

std::string HeadStation::Moving() const {
  const Head* const head = head_.load();
  return head ? head->Moving() : std::string();
}

Reply HeadStation::UsePosition(const std::string& action, const std::string& position) {
  if (!api_) {
    return Refusal(409, "The driver knows of no head at this camera.");
  }
  Reply reply;
  if (action == "store") {
    reply = Store(position);
  } else if (action == "go") {
    reply = ToReply(api_->SelectPreposition(0, position.c_str()));
  } else {
    reply = ToReply(api_->DeletePreposition(position.c_str()));
    if (reply.status == 200) {
      thumbnails_.remove(position);
    }
  }
  Refresh();
  return reply;
}

// The driver renames the position at which the head is, and takes one name for two positions: a person would lose one
// without a word. A head with fixed slots stores at its slot, whatever the slot is called.
std::optional<std::string> HeadStation::WhyNotStore(const std::string& name) const {
  constexpr std::size_t kMostNormal = 32;  // a head with fixed slots has 64
  const std::lock_guard guard(lock_);
  if (!positions_ || positions_->size() > kMostNormal || name == here_) {
    return std::nullopt;
  }
  if (!here_.empty()) {
    return "The head is at \"" + here_ +
           "\"; storing would rename that position. Move the head or delete it first.";
  }
  for (const Position& position : *positions_) {
    if (position.name == name) {
      return "There is a position \"" + name + "\" already; delete it first.";
    }
  }
  return std::nullopt;
}

Reply HeadStation::Store(const std::string& name) {
  if (const auto refused = WhyNotStore(name)) {
    return Refusal(409, *refused);
  }
  const auto picture = thumbnails_.take();
  const Reply reply = ToReply(api_->AddPreposition(name.c_str()));
  if (reply.status != 200 || !picture) {
    return reply;
  }
  Refresh();
  try {
    thumbnails_.save(name, *picture);
  } catch (const Failure& failure) {
    link_.log(failure.what());
  }
  const std::lock_guard guard(lock_);
  for (Position& position : *positions_) {
    if (position.name == name) {
      position.picture = picture;
      position.version = ++pictures_;
    }
  }
  return reply;
}

json HeadStation::Positions() const {
  const std::lock_guard guard(lock_);
  if (!positions_) {
    return {};
  }
  json positions = json::array();
  for (const Position& position : *positions_) {
    positions.push_back({{"name", position.name}, {"picture", position.picture ? position.version : 0}});
  }
  return positions;
}

std::string HeadStation::Here() const {
  const std::lock_guard guard(lock_);
  return here_;
}

std::shared_ptr<const std::string> HeadStation::Thumbnail(const std::string& position) const {
  const std::lock_guard guard(lock_);
  if (positions_) {
    for (const Position& each : *positions_) {
      if (each.name == position) {
        return each.picture;
      }
    }
  }
  return nullptr;
}

}  // namespace kolvex_console
