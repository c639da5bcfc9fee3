#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "kolvex/IFrameAllocator.h"
#include "kolvex/IFrameSink.h"
#include "video/FrameLease.h"
#include "video/JpegHeader.h"
#include "video/Mpeg4Header.h"

namespace sarnevo {

/// The host's objects that the frames of one channel go to, each of which may be null, and what the channel shares.
struct FrameRoute {
  ipcapture::IFrameAllocator* allocator = nullptr;
  ipcapture::IFrameSink* sink = nullptr;
  std::shared_ptr<FrameReturns> returns;
};

/// Writes a JPEG file into a frame of the host's and gives it to the sink. A frame without a scan, and one
/// that the host has no room for, is lost.
///
/// This and the next call the host on the calling thread. The host may end the channel in each of these calls; the
/// others are then left out (threads/HostCall.h).
/// @param payloads  the RFC 2435 headers of the first packet, and the scan
void DeliverJPEG(const FrameRoute& route, std::span<const u8> payloads, JpegLayout layout) noexcept;

/// Copies an MPEG-4 frame into one of the host's and gives it to the sink. False when the host had no frame
/// or refused it: it then needs the next key frame. The route has an allocator.
/// @param data  as it came from the camera, not empty
bool DeliverMPEG4(const FrameRoute& route, std::span<const u8> data, PictureSize size, bool isKey) noexcept;

/// The room that the host is asked for, for an MPEG-4 frame of @p size bytes: steps, so that the host can
/// use its frames again.
constexpr std::size_t Mpeg4Capacity(std::size_t size) noexcept {
  for (const std::size_t step : {4096U, 16384U, 32768U, 131072U}) {
    if (size <= step) {
      return step;
    }
  }
  return size;
}

}  // namespace sarnevo
