#pragma once

#include "video/CBaseCameraChannel.h"

namespace sarnevo {

/// The channel of a group 1 camera.
class CGroup1CameraChannel final : public CBaseCameraChannel {
 public:
  CGroup1CameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink)
      : CBaseCameraChannel(channelIndex, driver, sink, true) {}

  /// Succeeds when the camera's reply begins with "ret=200"; the HTTP status isn't looked at.
  u32 ConfigureCamera() override;
};

}  // namespace sarnevo
