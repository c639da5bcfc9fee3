#pragma once

#include <optional>

#include "FramePool.h"
#include "PictureCodec.h"

namespace kolvex_host {

/// What looking into the pictures of one stream has shown.
struct PictureCounts {
  sarnevo::u64 decoded = 0;  ///< frames looked at
  sarnevo::u64 damaged = 0;  ///< of these, frames that the decoder complains about
  sarnevo::u64 counted = 0;  ///< of these, pictures with a readable frame counter
  sarnevo::u64 lost = 0;     ///< numbers missing between two counters
  sarnevo::u64 doubled = 0;  ///< pictures with the counter of the one before

  /// At least one picture could be decoded.
  bool HasGood() const { return decoded > damaged; }
};

/// Decodes each frame of one stream and follows the frame counter that the simulated camera draws into its
/// picture: the only proof from end to end that no frame was lost or doubled on the way.
///
/// A stream whose first pictures carry no counter comes from a real camera; it isn't looked at any further.
/// One thread.
class FrameInspector {
 public:
  explicit FrameInspector(sarnevo::Codec codec) : decoder_(codec) {}

  /// The counter in the picture, if there is one.
  std::optional<sarnevo::u64> Inspect(const PooledFrame& frame);
  const PictureCounts& Counts() const { return counts_; }

 private:
  void Follow(sarnevo::u64 counter);

  PictureDecoder decoder_;
  PictureCounts counts_;
  std::optional<sarnevo::u64> last_;
};

}  // namespace kolvex_host
