#pragma once

#include <string>

#include "camera/CBaseKolvexCameraProperties.h"

namespace sarnevo {

/// A camera of group 1. All have one model text and the same resolutions. Read from the camera are its PTZ port, its
/// audio, the number of its inputs and outputs, and its hardware address. The read fails only when the last is missing.
class CGroup1CameraProperties final : public CBaseKolvexCameraProperties {
 public:
  /// @param isNTSC  not 0: the resolutions and intervals of NTSC, else of PAL
  explicit CGroup1CameraProperties(u32 isNTSC) noexcept : isNTSC_(isNTSC) {}

  bool ReadProperties(Web::HttpRequest* request, CCameraProperties* properties, u32* level) override;
  bool PublishCapabilities(ipcapture::IIPCapabilities* capabilities, u32 isNTSC,
                           Web::HttpRequest* request) override;

 private:
  const u32 isNTSC_;
  std::string macAddress_;  // hexadecimal digits only
};

}  // namespace sarnevo
