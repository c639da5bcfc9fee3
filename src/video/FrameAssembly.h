#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "kolvex/Types.h"
#include "video/Activity.h"
#include "video/FrameDelivery.h"

namespace sarnevo {

/// The most bytes that one frame may have before it is delivered. A frame beyond that is a stream that has
/// lost its frame ends.
inline constexpr std::size_t kMaxFrameBytes = 256'000;

/// Joins the RTP payloads of one stream to frames and hands each complete one to the host.
///
/// Nothing is reordered, repaired or kept beyond the frame in the making: a loss throws that frame away, and
/// the next clean start is waited for. MJPEG (RFC 2435) finds it after the next frame's end, MPEG-4
/// (ISO/IEC 14496-2) at the next visual object sequence.
///
/// Threads: everything runs on the stream's receive thread, or while there is none. No heap allocation once
/// the buffer has grown to the size of the stream's frames. The host may end the channel in a callback; the object
/// lives until Add has returned.
class FrameAssembly {
 public:
  /// @param codec     CodecMJPEG; anything else takes the road of MPEG-4.
  /// @param activity  touched at each complete frame, delivered or not; outlives this object.
  FrameAssembly(const FrameRoute& route, u32 codec, JpegLayout layout, Activity& activity) noexcept;

  /// What MPEG-4 frames carry until a key frame says better.
  void SetPictureSize(PictureSize size) noexcept { size_ = size; }
  /// A packet came.
  /// @param payload  without the RTP header
  /// @param marker   the packet is the last of its frame
  void Add(std::span<const u8> payload, bool marker) noexcept;
  /// Packets were lost, or the stream has ended: drops the frame in the making and waits for a clean start.
  void Resynchronise() noexcept;

 private:
  void AddMjpeg(std::span<const u8> payload, bool marker) noexcept;
  void AddMpeg4(std::span<const u8> payload, bool marker) noexcept;
  bool Append(std::span<const u8> payload) noexcept;
  bool DeliverMpeg4Frame() noexcept;

  // Constant.
  const FrameRoute route_;
  const u32 codec_;
  const JpegLayout layout_;
  Activity& activity_;

  // Receive thread only, and others while there is none.
  PictureSize size_;
  bool needSync_ = true;
  bool atFrameStart_ = false;  // MJPEG: the next packet is the first of a frame
  // MPEG-4: the kind of the frame in the making, or of the last one; neither while a new start is looked for.
  bool keyFrame_ = false;
  bool interFrame_ = false;
  std::vector<u8> frameBuffer_;  // keeps its capacity
};

}  // namespace sarnevo
