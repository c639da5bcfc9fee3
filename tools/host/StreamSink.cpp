#include "StreamSink.h"

#include "FrameWriter.h"

namespace kolvex_host {

bool StreamSink::OnFrame(sarnevo::ipcapture::IFrame* frame) {
  const SteadyTime now = std::chrono::steady_clock::now();
  if (taken_ == 0) {
    first_ = now;
  }
  if ((limit_ != 0 && taken_ == limit_) || (duration_.count() != 0 && now - first_ > duration_)) {
    return true;
  }
  ++taken_;
  // The library hands out only frames of our own pool.
  auto& pooled = static_cast<PooledFrame&>(*frame);
  statistics_.AddFrame(now, pooled.Bytes().size(), pooled.IsKey(), pooled.Width(), pooled.Height());
  // The frame is ours: keeping a reference saves the copy. The library's own reference goes with
  // ReleaseFrame, right after this call.
  writer_.Push({FrameRef(pooled), index_, now});
  return true;
}

bool StreamSink::IsComplete() const {
  const StreamCounts counts = Counts();
  const bool late =
      duration_.count() != 0 && counts.first && std::chrono::steady_clock::now() - *counts.first >= duration_;
  return late || (limit_ != 0 && counts.frames >= limit_);
}

}  // namespace kolvex_host
