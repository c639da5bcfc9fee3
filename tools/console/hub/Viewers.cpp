#include "hub/Viewers.h"

#include <algorithm>
#include <chrono>

namespace kolvex_console {

namespace {

constexpr const char* kBoundary = "kolvex-picture";

void Append(std::string& into, std::uint64_t number, int bytes) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    into += static_cast<char>(number >> static_cast<unsigned>(shift) & 0xffU);
  }
}

}  // namespace

std::string MjpegOutlet::Type() const {
  return std::string("multipart/x-mixed-replace; boundary=") + kBoundary;
}

bool MjpegOutlet::Next(Unit& into) {
  const PicturePtr picture = look_->Newest();
  if (!picture || picture->number == sent_ || picture->time < notBefore_ || look_->IsClosed()) {
    return false;
  }
  into.head = std::string("--") + kBoundary +
              "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture->bytes.size()) +
              "\r\n\r\n";
  into.body = picture->bytes;
  into.memory = picture;
  into.tail = "\r\n";
  into.key = 0;
  sent_ = picture->number;
  return true;
}

bool EventsOutlet::Next(Unit& into) {
  std::string event;
  if (!news_.Next(event)) {
    return false;
  }
  into.head = "data: " + event + "\n\n";  // JSON text has no line breaks
  return true;
}

bool WallOutlet::Next(Unit& into) {
  FollowCameras();
  std::string event;
  if (news_.Next(event)) {
    into.head.reserve(event.size() + 5);
    Append(into.head, event.size() + 1, 4);
    into.head += 'E';
    into.head += event;
    return true;
  }
  return NextPicture(into);
}

void WallOutlet::FollowCameras() {
  const std::uint64_t version = site_->Version();
  if (version == siteVersion_) {
    return;
  }
  siteVersion_ = version;
  std::vector<Tile> tiles;
  for (const auto& [name, camera] : site_->Cameras()) {
    if (!only_.empty() && !only_.contains(name)) {
      continue;
    }
    const std::shared_ptr<Feed> feed = camera->Video();
    const auto known = std::find_if(tiles_.begin(), tiles_.end(),
                                    [&](const Tile& tile) { return tile.look && &**tile.look == feed.get(); });
    if (known != tiles_.end()) {
      tiles.push_back(std::move(*known));
      tiles.back().name = name;
    } else {
      tiles.push_back({name, std::make_unique<Feed::Look>(feed)});
    }
  }
  tiles_ = std::move(tiles);
}

bool WallOutlet::NextPicture(Unit& into) {
  // In turns: a viewer that has room for one picture only gets one of each camera after the other.
  for (std::size_t i = 0; i < tiles_.size(); ++i) {
    const std::size_t at = (turn_ + i) % tiles_.size();
    Tile& tile = tiles_[at];
    if (tile.unanswered.size() >= tile.most || (*tile.look)->Number() == tile.sent) {
      continue;
    }
    const PicturePtr picture = (*tile.look)->Newest();
    if (!picture || picture->number == tile.sent) {
      continue;
    }
    tile.sent = picture->number;
    tile.number = ++number_;
    if (isAnswered_) {
      tile.unanswered.push_back({number_, Clock::now()});
    }
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(picture->time.time_since_epoch());
    Append(into.head, 1 + 8 + 4 + 2 + tile.name.size() + picture->bytes.size(), 4);
    into.head += 'P';
    Append(into.head, static_cast<std::uint64_t>(time.count()), 8);
    Append(into.head, number_, 4);
    Append(into.head, tile.name.size(), 2);
    into.head += tile.name;
    into.body = picture->bytes;
    into.memory = picture;
    into.key = number_;
    turn_ = at + 1;
    return true;
  }
  return false;
}

void WallOutlet::PutBack(const Unit& unit) {
  const auto number = static_cast<std::uint32_t>(unit.key);
  for (Tile& tile : tiles_) {
    std::erase_if(tile.unanswered, [&](const UnderWay& each) { return each.number == number; });
    if (tile.number == number) {
      tile.sent = 0;
    }
  }
}

bool WallOutlet::Shown(std::uint32_t number) {
  for (Tile& tile : tiles_) {
    const auto found = std::find_if(tile.unanswered.begin(), tile.unanswered.end(),
                                    [&](const UnderWay& each) { return each.number == number; });
    if (found != tile.unanswered.end()) {
      const auto took = Clock::now() - found->sent;
      fastest_ = std::min(fastest_, took);
      const bool wasHeld = tile.unanswered.size() >= tile.most;
      tile.most = took - fastest_ > kLate ? 1 : kUnderWay;
      tile.unanswered.erase(tile.unanswered.begin(), found + 1);
      return wasHeld && tile.unanswered.size() < tile.most;
    }
  }
  return false;
}

}  // namespace kolvex_console
