#include "simcam/stream/StreamHub.h"

namespace simcam {

std::shared_ptr<StreamSource> StreamHub::Get(const StreamKey& key, const StreamSource::ViewProvider& view,
                                             std::uint32_t firstCounter) {
  if (const auto found = sources_.find(key); found != sources_.end()) {
    if (std::shared_ptr<StreamSource> source = found->second.lock()) {
      return source;
    }
  }
  std::erase_if(sources_, [](const auto& entry) { return entry.second.expired(); });
  auto source = std::make_shared<StreamSource>(loop_, pool_, key, view, firstCounter);
  sources_[key] = source;
  return source;
}

std::size_t StreamHub::sources() {
  std::erase_if(sources_, [](const auto& entry) { return entry.second.expired(); });
  return sources_.size();
}

}  // namespace simcam
