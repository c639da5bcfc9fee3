#include "StreamSink.h"

#include "FrameWriter.h"

namespace kolvex_host {

bool StreamSink::OnFrame(sarnevo::ipcapture::IFrame* frame) {
  if (limit_ != 0 && taken_ == limit_) {
    return true;
  }
  ++taken_;
  // The library hands out only frames of our own pool.
  auto& pooled = static_cast<PooledFrame&>(*frame);
  const SteadyTime now = std::chrono::steady_clock::now();
  statistics_.AddFrame(now, pooled.Bytes().size(), pooled.IsKey(), pooled.Width(), pooled.Height());
  // The frame is ours: keeping a reference saves the copy. The library's own reference goes with
  // ReleaseFrame, right after this call.
  writer_.Push({FrameRef(pooled), index_, now});
  return true;
}

}  // namespace kolvex_host
