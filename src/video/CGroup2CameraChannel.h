#pragma once

#include <memory>
#include <utility>

#include "video/CBaseCameraChannel.h"

namespace sarnevo {

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
