#include "video/CGroup2CameraChannel.h"

#include "camera/CameraRequest.h"
#include "device/Device.h"
#include "http/RequestInterrupt.h"
#include "video/Group2Request.h"

namespace sarnevo {

u32 CGroup2CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  CameraRequest request(*Driver(), request_policy::kConfiguration);
  const Web::RequestInterrupt interrupt(request);
  configured_ = request.Send("GET", BuildGroup2Request(Format()).c_str(), false) ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
