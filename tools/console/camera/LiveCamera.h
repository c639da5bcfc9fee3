#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

#include <nlohmann/json.hpp>

#include "CameraConfig.h"
#include "Credentials.h"
#include "DriverSession.h"
#include "FramePool.h"
#include "Library.h"
#include "StreamStatistics.h"
#include "web/Desk.h"
#include "camera/HeadStation.h"
#include "camera/Link.h"
#include "camera/PinBoard.h"
#include "camera/Store.h"
#include "camera/Transcoder.h"
#include "hub/Camera.h"
#include "hub/Site.h"

namespace kolvex_console {

/// One camera of the console through the driver library: its stream, its inputs, and on demand its outputs, head
/// and positions.
///
/// The library's threads bring frames and inputs, the desk does what takes time, the head has a thread of its own,
/// and the server asks for the state.
class LiveCamera final : public Camera {
 public:
  struct Surroundings {
    std::shared_ptr<kolvex_host::Library> library;
    std::shared_ptr<Site> site;
    std::shared_ptr<const Store> store;
    std::string simulator;  ///< ADDRESS:PORT of the simulated cameras' control; empty for real ones
  };
  /// Opens the driver and starts the stream. Throws Failure.
  LiveCamera(Surroundings surroundings, const KnownCamera& camera);
  /// Ends everything; up to 20 seconds, when the camera keeps the driver waiting.
  ~LiveCamera() override;
  LiveCamera(const LiveCamera&) = delete;
  LiveCamera& operator=(const LiveCamera&) = delete;

  std::shared_ptr<Feed> Video() const override { return feed_; }
  StateText State() const override;
  nlohmann::json History() const override;
  CameraCounts Counts() const override;
  void Rename(const std::string& name) override;
  Reply Move(const std::string& movement, int speed) override;
  void SetOutput(unsigned output, bool high, Done done) override;
  void UsePosition(const std::string& action, const std::string& position, Done done) override;
  std::shared_ptr<const std::string> Thumbnail(const std::string& position) const override;
  void Simulate(const std::string& fault, Done done) override;

  /// Once a second: figures, and the reason when no picture comes.
  void Second();
  kolvex_host::CameraConfig Config() const;

 private:
  using Clock = std::chrono::steady_clock;
  class FrameSink final : public sarnevo::ipcapture::IFrameSink {
   public:
    explicit FrameSink(LiveCamera& camera) : camera_(camera) {}
    bool OnFrame(sarnevo::ipcapture::IFrame* frame) override { return camera_.TakeFrame(frame); }
    void OnNoData() override { camera_.TakeNoData(); }

   private:
    LiveCamera& camera_;
  };

  bool TakeFrame(sarnevo::ipcapture::IFrame* frame);
  void TakeNoData();
  HeadStation::Thumbnails MakeThumbnails();
  /// Puts a job to the desk; @p done gets a refusal when that is impossible.
  void Put(const Done& done, std::function<Reply()> job);
  void FindReason();
  Reply SendFault(const std::string& fault);
  std::shared_ptr<const std::string> TakePicture();

  /// Makes a change known to viewers. Without the lock.
  void Publish();
  nlohmann::json BuildState() const;  // under the lock
  std::string Name() const;

  const Surroundings surroundings_;
  const std::shared_ptr<Feed> feed_ = std::make_shared<Feed>();
  const std::shared_ptr<kolvex_host::FramePool> pool_;
  const Clock::time_point start_ = Clock::now();
  const std::chrono::system_clock::time_point startTime_ = std::chrono::system_clock::now();
  kolvex_host::StreamStatistics statistics_;
  FrameSink sink_{*this};

  mutable std::mutex lock_;
  std::string name_;                                  // guarded by lock_
  std::string why_;                                   // guarded by lock_; why there is no picture
  std::string fault_ = "none";                        // guarded by lock_; of a simulated camera
  bool silent_ = false;                               // guarded by lock_; no frames since a report of it
  std::uint64_t restarts_ = 0;                        // guarded by lock_
  std::int64_t lastFrame_ = 0;                        // guarded by lock_; milliseconds since 1970
  nlohmann::json second_ = nlohmann::json::object();  // guarded by lock_; figures of the last second
  std::deque<nlohmann::json> history_;                // guarded by lock_
  std::uint64_t version_ = 0;                         // guarded by lock_
  std::shared_ptr<const std::string> text_;           // guarded by lock_

  // Server's thread.
  kolvex_host::StreamCounts before_;
  Clock::time_point beforeTime_ = Clock::now();
  Clock::time_point lastLook_{};
  Clock::time_point lastHeadLook_{};
  // Set on the server's thread, cleared on the desk's: a job of the kind waits or runs.
  std::atomic<bool> looksForReason_{false};
  std::atomic<bool> looksForHead_{false};
  std::stop_source ending_;

  const Link link_;
  std::optional<Transcoder> transcoder_;  // of MPEG-4
  // A driver for each use: what one waits for holds up no other, and opening one costs no request.
  std::optional<kolvex_host::CameraSession> stream_;
  PinBoard pins_{link_};
  Desk desk_;
  HeadStation head_{link_, desk_, MakeThumbnails(), surroundings_.store->WasKilled()};
};

}  // namespace kolvex_console
