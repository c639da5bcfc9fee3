#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simcam/base/EventLoop.h"
#include "simcam/codec/Packetizer.h"
#include "simcam/picture/View.h"
#include "simcam/stream/EncoderPool.h"
#include "simcam/stream/StreamEncoder.h"

namespace simcam {

/// Takes the frames of a source, on the loop's thread.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void OnFrame(const std::shared_ptr<const PacketizedFrame>& frame) = 0;
};

/// What distinguishes one encoder from another. Cameras with equal keys share one.
struct StreamKey {
  StreamFormat format;
  std::string caption;
  std::array<double, 3> home{};  ///< where it looks: pan, tilt, zoom
  std::uint64_t owner = 0;       ///< 0: shared; else the one camera whose head or lamps it shows

  auto operator<=>(const StreamKey&) const = default;
};

/// An encoder at work: makes a frame at each tick of the stream's rate and hands it to every subscriber in
/// turn. It runs while anybody subscribes. When encoding takes longer than a tick, ticks are left out and the
/// counter goes on without a gap: it counts frames that were made. Loop thread only.
class StreamSource : public std::enable_shared_from_this<StreamSource> {
 public:
  using ViewProvider = std::function<View()>;  ///< called on the loop's thread before each frame

  StreamSource(EventLoop& loop, EncoderPool& pool, const StreamKey& key, ViewProvider view,
               std::uint32_t firstCounter);

  /// The new sink soon gets a key frame, and never a frame before it.
  void Subscribe(FrameSink* sink);
  void Unsubscribe(FrameSink* sink);
  std::uint32_t nextCounter() const { return nextCounter_; }

 private:
  struct Subscriber {
    FrameSink* sink;  // not owned; unsubscribes before it goes
    bool awaitsKey;
  };
  void Tick();
  void Deliver(const std::shared_ptr<PacketizedFrame>& frame);

  EventLoop& loop_;
  EncoderPool& pool_;
  const ViewProvider view_;
  const Microseconds interval_;
  const std::shared_ptr<StreamEncoder> encoder_;  // used by one pool thread at a time, see busy_
  std::vector<Subscriber> subscribers_;
  Timer timer_;
  Clock::time_point nextTick_{};
  std::uint32_t nextCounter_;
  bool busy_ = false;  // a frame is being made
  bool forceKey_ = true;
};

}  // namespace simcam
