#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hub/News.h"
#include "hub/Outlet.h"
#include "hub/Site.h"

namespace kolvex_console {

/// One camera's pictures as multipart/x-mixed-replace (RFC 2046, 5.1), each part with its type and length. It doesn't
/// begin with an old picture of a camera that is silent, since the parts don't say when they were taken.
class MjpegOutlet final : public Outlet {
 public:
  explicit MjpegOutlet(std::shared_ptr<Feed> feed) : look_(std::move(feed)) {}
  std::string Type() const override;
  bool Next(Unit& into) override;
  void PutBack(const Unit&) override { sent_ = 0; }
  bool HasEnded() const override { return look_->IsClosed(); }

 private:
  Feed::Look look_;
  const std::chrono::system_clock::time_point notBefore_ = std::chrono::system_clock::now() - kFresh;
  std::uint64_t sent_ = 0;  // number of the picture sent last
};

/// Everything that changes as server-sent events, each with its JSON as data.
class EventsOutlet final : public Outlet {
 public:
  explicit EventsOutlet(std::shared_ptr<Site> site) : news_(std::move(site)) {}
  std::string Type() const override { return "text/event-stream"; }
  bool Next(Unit& into) override;

 private:
  News news_;
};

/// The page's own stream: pictures of all cameras, or of those that are named, and all events, over one
/// connection. Each message is
///
///     4 bytes  length of what follows, big-endian
///     1 byte   'E': JSON text of an event (see News); or 'P', a picture:
///       8 bytes  when it came, milliseconds since 1970, big-endian
///       4 bytes  the picture's number in this stream, big-endian
///       2 bytes  length of the camera's name, big-endian; the name, UTF-8; the JPEG file
class WallOutlet final : public Outlet {
 public:
  /// @p only empty: all cameras. @p isAnswered: the viewer says what it has shown, and gets no further picture of a
  /// camera while kUnderWay of them are unanswered, or one while answers come late. Else pictures pile up on the way to
  /// a browser that is too slow for them, since the kernel on both sides and the browser itself take seconds of them.
  WallOutlet(std::shared_ptr<Site> site, std::set<std::string> only, bool isAnswered)
      : site_(site), only_(std::move(only)), isAnswered_(isAnswered), news_(std::move(site)) {}
  std::string Type() const override { return "application/x-kolvex-wall"; }
  bool Next(Unit& into) override;
  void PutBack(const Unit& unit) override;
  /// The viewer has shown the picture of that number, and so all of the same camera before it. True when that camera
  /// may send again.
  bool Shown(std::uint32_t number);

  /// So many that 25 pictures a second pass when an answer takes 120 ms.
  static constexpr std::size_t kUnderWay = 3;
  /// An answer is late when it takes so much longer than the fastest one: a long way alone makes none late.
  static constexpr std::chrono::milliseconds kLate{150};

 private:
  using Clock = std::chrono::steady_clock;
  struct UnderWay {
    std::uint32_t number = 0;
    Clock::time_point sent;
  };
  struct Tile {
    std::string name;
    std::unique_ptr<Feed::Look> look;
    std::uint64_t sent = 0;             // the feed's number of the picture sent last
    std::uint32_t number = 0;           // the stream's number of it
    std::deque<UnderWay> unanswered{};  // the oldest first; of a viewer that answers
    std::size_t most = kUnderWay;       // of them
  };
  void FollowCameras();
  bool NextPicture(Unit& into);

  const std::shared_ptr<Site> site_;
  const std::set<std::string> only_;
  const bool isAnswered_;
  News news_;
  std::uint64_t siteVersion_ = 0;
  std::vector<Tile> tiles_;
  std::size_t turn_ = 0;                              // the tile that is looked at first
  std::uint32_t number_ = 0;                          // of the picture sent last
  Clock::duration fastest_ = Clock::duration::max();  // answer
};

}  // namespace kolvex_console
