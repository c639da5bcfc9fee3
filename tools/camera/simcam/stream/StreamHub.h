#pragma once

#include <map>
#include <memory>

#include "simcam/stream/StreamSource.h"

namespace simcam {

/// Finds the source for a key, so that cameras that show the same cost one encoder. Loop thread only.
class StreamHub {
 public:
  StreamHub(EventLoop& loop, EncoderPool& pool) : loop_(loop), pool_(pool) {}

  /// The source of the key, made when there is none. It lives as long as somebody holds it. firstCounter is
  /// where a new one begins to count.
  std::shared_ptr<StreamSource> Get(const StreamKey& key, const StreamSource::ViewProvider& view,
                                    std::uint32_t firstCounter);

  std::size_t sources();  ///< how many encoders are at work

 private:
  EventLoop& loop_;
  EncoderPool& pool_;
  std::map<StreamKey, std::weak_ptr<StreamSource>> sources_;
};

}  // namespace simcam
