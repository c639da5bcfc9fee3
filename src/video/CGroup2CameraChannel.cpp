#include "video/CGroup2CameraChannel.h"

#include "device/Device.h"
#include "video/CameraRequest.h"
#include "video/Group2Request.h"

namespace sarnevo {

u32 CGroup2CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  CameraRequest request(*Driver());
  configured_ = request.Send(BuildGroup2Request(Format())) ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
