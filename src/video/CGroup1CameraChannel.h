#pragma once

#include <memory>
#include <utility>

#include "video/CBaseCameraChannel.h"

namespace sarnevo {

/// The channel of a group 1 camera.
class CGroup1CameraChannel final : public CBaseCameraChannel {
 public:
  CGroup1CameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink,
                       std::shared_ptr<FrameReturns> returns)
      : CBaseCameraChannel(channelIndex, driver, sink, std::move(returns), true) {}

  /// Succeeds when the camera's reply begins with "ret=200"; the HTTP status isn't looked at.
  u32 ConfigureCamera() override;
};

}  // namespace sarnevo
