#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "hub/Feed.h"
#include "web/Http.h"

namespace kolvex_console {

/// What has been counted of one camera since the server began.
struct CameraCounts {
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  std::uint64_t gaps = 0;      ///< frames later than 2.5 intervals after the one before
  std::uint64_t restarts = 0;  ///< times that frames came again after the driver had reported their absence
  std::uint64_t noData = 0;    ///< such reports
  std::optional<double> lastFrameAge;              ///< seconds; nothing before the first frame
  std::map<unsigned, std::uint64_t> inputChanges;  ///< by input, from 1
};

/// The state of a camera as JSON text, with a number that grows at each change.
struct StateText {
  std::uint64_t version = 0;
  std::shared_ptr<const std::string> json;
};

/// One camera of the console, as the doors see it. Any thread; nothing here waits for a camera. What takes time
/// is answered later.
class Camera {
 public:
  using Done = std::function<void(Reply)>;

  virtual ~Camera() = default;
  virtual std::shared_ptr<Feed> Video() const = 0;
  virtual StateText State() const = 0;
  /// The figures of the last minutes, one a second.
  virtual nlohmann::json History() const = 0;
  virtual CameraCounts Counts() const = 0;
  virtual void Rename(const std::string& name) = 0;

  /// Head and lens. A wish holds for a second; who wants more repeats it. "stop" ends every movement.
  virtual Reply Move(const std::string& movement, int speed) = 0;
  virtual void SetOutput(unsigned output, bool high, Done done) = 0;
  /// @p action is "store", "go" or "delete".
  virtual void UsePosition(const std::string& action, const std::string& position, Done done) = 0;
  /// The picture that was taken when the position was stored; null when there is none.
  virtual std::shared_ptr<const std::string> Thumbnail(const std::string& position) const = 0;
  /// Of a simulated camera: one of the faults that its state lists.
  virtual void Simulate(const std::string& fault, Done done) = 0;
};

}  // namespace kolvex_console
