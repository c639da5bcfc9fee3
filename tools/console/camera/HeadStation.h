#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "FramePool.h"
#include "web/Desk.h"
#include "camera/Head.h"
#include "camera/Link.h"
#include "web/Http.h"

namespace kolvex_console {

/// A camera's head, once the camera has answered that it has one, and the stored positions with their pictures.
class HeadStation {
 public:
  /// What keeps pictures of positions; desk's thread.
  struct Thumbnails {
    std::function<std::shared_ptr<const std::string>(const std::string& position)> read;
    std::function<void(const std::string& position, const std::string& jpeg)> save;
    std::function<void(const std::string& position)> remove;
    std::function<std::shared_ptr<const std::string>()> take;  ///< a picture of now; null when there is none
  };
  /// @p link and @p desk outlive this object; the desk has ended when it goes. @p mayMove: of Head.
  HeadStation(const Link& link, Desk& desk, Thumbnails thumbnails, bool mayMove)
      : link_(link), desk_(desk), thumbnails_(std::move(thumbnails)), mayMove_(mayMove) {}
  ~HeadStation();
  HeadStation(const HeadStation&) = delete;
  HeadStation& operator=(const HeadStation&) = delete;

  // Jobs of the desk.
  /// Asks the camera for its head; up to 15 seconds.
  void Find();
  Reply UsePosition(const std::string& action, const std::string& position);

  // Any thread, at once.
  bool IsThere() const { return head_.load() != nullptr; }
  Reply Move(const std::string& movement, int speed);
  void Stop();
  std::string Moving() const;
  /// Null without a head.
  nlohmann::json Positions() const;
  /// The name of the position where the head is; empty when it isn't known.
  std::string Here() const;
  std::shared_ptr<const std::string> Thumbnail(const std::string& position) const;

 private:
  struct Position {
    std::string name;
    std::shared_ptr<const std::string> picture;
    std::uint64_t version = 0;  // of the picture
  };
  void TakeMessage(unsigned level, const char* text);
  void Refresh();
  Reply Store(const std::string& name);
  std::optional<std::string> WhyNotStore(const std::string& name) const;

  const Link& link_;
  Desk& desk_;
  const Thumbnails thumbnails_;
  const bool mayMove_;
  mutable std::mutex lock_;
  std::optional<std::vector<Position>> positions_;  // guarded by lock_; written on the desk's thread alone
  std::string here_;                                // guarded by lock_
  std::uint64_t pictures_ = 0;                      // desk's thread; taken or read so far
  // Written by the desk when the head is complete, cleared before it goes.
  std::atomic<Head*> head_{nullptr};

  // Desk's thread, and the destructor after it.
  kolvex_host::FramePool noFrames_{0};
  std::optional<kolvex_host::DriverSession> driver_;
  sarnevo::IIPPTZApi* api_ = nullptr;  // the driver's
  std::unique_ptr<Head> own_;
};

}  // namespace kolvex_console
