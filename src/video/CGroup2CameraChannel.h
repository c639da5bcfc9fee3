#pragma once

#include <memory>
#include <string>
#include <utility>

#include "video/CBaseCameraChannel.h"

namespace sarnevo {

/// The path and query that configures a group 2 camera. A size that the camera has no word for is left out,
/// as is a frame rate for an interval of 0, and the camera keeps what it has.
std::string BuildGroup2Request(const StreamFormat& format);

/// The channel of a group 2 camera.
class CGroup2CameraChannel final : public CBaseCameraChannel {
 public:
  CGroup2CameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink,
                       std::shared_ptr<FrameReturns> returns)
      : CBaseCameraChannel(channelIndex, driver, sink, std::move(returns), false) {}

  /// Succeeds when the camera has answered, whatever it says.
  u32 ConfigureCamera() override;
};

}  // namespace sarnevo
