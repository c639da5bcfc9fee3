#include "simcam/stream/StreamSource.h"

#include <algorithm>
#include <utility>

namespace simcam {

StreamSource::StreamSource(EventLoop& loop, EncoderPool& pool, const StreamKey& key, ViewProvider view,
                           std::uint32_t firstCounter)
    : loop_(loop),
      pool_(pool),
      view_(std::move(view)),
      interval_(1'000'000 / std::max<unsigned>(key.format.fps, 1)),
      encoder_(std::make_shared<StreamEncoder>(key.format, key.caption)),
      timer_(loop, [this] { Tick(); }),
      nextCounter_(firstCounter) {}

void StreamSource::Subscribe(FrameSink* sink) {
  subscribers_.push_back({sink, true});
  forceKey_ = true;
  if (!timer_.running()) {
    nextTick_ = Clock::now();
    timer_.StartOnce(Microseconds{0});
  }
}

void StreamSource::Unsubscribe(FrameSink* sink) {
  std::erase_if(subscribers_, [sink](const Subscriber& s) { return s.sink == sink; });
  if (subscribers_.empty()) {
    timer_.Stop();
  }
}

void StreamSource::Tick() {
  const Clock::time_point now = Clock::now();
  nextTick_ = std::max(nextTick_ + interval_, now);
  timer_.StartOnce(std::chrono::duration_cast<Microseconds>(nextTick_ - now));
  if (busy_) {
    return;
  }
  busy_ = true;
  pool_.Submit([self = weak_from_this(), encoder = encoder_, loop = &loop_, view = view_(),
                counter = nextCounter_, key = std::exchange(forceKey_, false)] {
    loop->Post([self, frame = encoder->Next(view, counter, key)] {
      if (const std::shared_ptr<StreamSource> source = self.lock()) {
        source->Deliver(frame);
      }
    });
  });
}

void StreamSource::Deliver(const std::shared_ptr<PacketizedFrame>& frame) {
  busy_ = false;
  if (frame == nullptr) {
    return;
  }
  ++nextCounter_;
  for (Subscriber& subscriber : subscribers_) {
    subscriber.awaitsKey = subscriber.awaitsKey && !frame->key;
    if (!subscriber.awaitsKey) {
      subscriber.sink->OnFrame(frame);
    }
  }
}

}  // namespace simcam
