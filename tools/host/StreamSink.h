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
  /// @p writer outlives this object; frames go to its stream @p index. Frames after the first @p limit, and
  /// those later than @p duration after the first one, are passed over; 0 means no limit.
  StreamSink(FrameWriter& writer, std::size_t index, sarnevo::u32 frameInterval, sarnevo::u64 limit,
             Seconds duration)
      : writer_(writer), index_(index), limit_(limit), duration_(duration), statistics_(frameInterval) {}

  bool OnFrame(sarnevo::ipcapture::IFrame* frame) override;
  void OnNoData() override { statistics_.AddNoData(); }

  StreamCounts Counts() const { return statistics_.Counts(); }
  /// What was asked for has come.
  bool IsComplete() const;
  void End() { statistics_.End(std::chrono::steady_clock::now()); }

 private:
  FrameWriter& writer_;
  const std::size_t index_;
  const sarnevo::u64 limit_;
  const Seconds duration_;
  sarnevo::u64 taken_ = 0;  // receive thread only
  SteadyTime first_;        // receive thread only; of the first frame
  StreamStatistics statistics_;
};

}  // namespace kolvex_host
