#pragma once

#include <cstddef>

#include "FramePool.h"
#include "StreamStatistics.h"
#include "kolvex/IFrameSink.h"

namespace kolvex_host {

class FrameWriter;

/// Takes the frames of one stream from the library.
///
/// Runs on the stream's receive thread, where every moment spent is one in which no packet is taken from the
/// network: it counts, puts a reference to the frame into the writer's queue and returns. Files are the
/// writer thread's affair.
class StreamSink final : public sarnevo::ipcapture::IFrameSink {
 public:
  /// @p writer outlives this object; frames go to its stream @p index. Frames after the first @p limit are
  /// passed over; 0 means no limit.
  StreamSink(FrameWriter& writer, std::size_t index, sarnevo::u32 frameInterval, sarnevo::u64 limit)
      : writer_(writer), index_(index), limit_(limit), statistics_(frameInterval) {}

  bool OnFrame(sarnevo::ipcapture::IFrame* frame) override;
  void OnNoData() override { statistics_.AddNoData(); }

  StreamCounts Counts() const { return statistics_.Counts(); }
  /// All frames that were asked for have come.
  bool IsComplete() const { return limit_ != 0 && Counts().frames >= limit_; }

 private:
  FrameWriter& writer_;
  const std::size_t index_;
  const sarnevo::u64 limit_;
  sarnevo::u64 taken_ = 0;  // receive thread only
  StreamStatistics statistics_;
};

}  // namespace kolvex_host
