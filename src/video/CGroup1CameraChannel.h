#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "device/CQualitySettings.h"
#include "video/CBaseCameraChannel.h"

namespace sarnevo {

/// The path and query that configures a group 1 camera. Nothing when the codec is unknown, or when the
/// camera's bit rates don't reach the one that the quality asks for: such a camera can't be configured.
std::optional<std::string> BuildGroup1Request(const StreamFormat& format, const CQualitySettings& quality);

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
