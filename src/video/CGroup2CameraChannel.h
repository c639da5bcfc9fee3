#pragma once

#include "video/CBaseCameraChannel.h"

namespace sarnevo {

/// The channel of a group 2 camera.
class CGroup2CameraChannel final : public CBaseCameraChannel {
 public:
  CGroup2CameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink)
      : CBaseCameraChannel(channelIndex, driver, sink, false) {}

  /// Succeeds when the camera has answered, whatever it says.
  u32 ConfigureCamera() override;
};

}  // namespace sarnevo
