#pragma once

#include "camera/CBaseKolvexCameraProperties.h"

namespace sarnevo {

/// A camera of group 2. It gives a number, and a table of the known models gives everything else. The read
/// fails with a number that isn't in the table.
class CGroup2CameraProperties final : public CBaseKolvexCameraProperties {
 public:
  /// @param isNTSC  not 0: the resolutions and intervals of NTSC, else of PAL
  explicit CGroup2CameraProperties(u32 isNTSC) noexcept : isNTSC_(isNTSC) {}

  bool ReadProperties(Web::HttpRequest* request, CCameraProperties* properties, u32* level) override;
  bool PublishCapabilities(ipcapture::IIPCapabilities* capabilities, u32 isNTSC,
                           Web::HttpRequest* request) override;

 private:
  const u32 isNTSC_;
};

}  // namespace sarnevo
