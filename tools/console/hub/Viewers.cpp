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
  if (!picture || picture->number == sent_ || look_->IsClosed()) {
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
      tiles.push_back({name, std::make_unique<Feed::Look>(feed), 0});
    }
  }
  tiles_ = std::move(tiles);
}

bool WallOutlet::NextPicture(Unit& into) {
  // In turns: a viewer that has room for one picture only gets one of each camera after the other.
  for (std::size_t i = 0; i < tiles_.size(); ++i) {
    const std::size_t at = (turn_ + i) % tiles_.size();
    Tile& tile = tiles_[at];
    const PicturePtr picture = (*tile.look)->Newest();
    if (!picture || picture->number == tile.sent) {
      continue;
    }
    tile.sent = picture->number;
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(picture->time.time_since_epoch());
    Append(into.head, 1 + 8 + 2 + tile.name.size() + picture->bytes.size(), 4);
    into.head += 'P';
    Append(into.head, static_cast<std::uint64_t>(time.count()), 8);
    Append(into.head, tile.name.size(), 2);
    into.head += tile.name;
    into.body = picture->bytes;
    into.memory = picture;
    into.key = static_cast<int>(at);
    turn_ = at + 1;
    return true;
  }
  return false;
}

void WallOutlet::PutBack(const Unit& unit) {
  // The tiles may be others meanwhile; then one picture more is sent.
  if (static_cast<std::size_t>(unit.key) < tiles_.size()) {
    tiles_[static_cast<std::size_t>(unit.key)].sent = 0;
  }
}

}  // namespace kolvex_console
