#include "video/CGroup1CameraChannel.h"

#include "device/Device.h"
#include "video/CameraRequest.h"
#include "video/Group1Request.h"

namespace sarnevo {

u32 CGroup1CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  const auto text = BuildGroup1Request(Format(), Driver()->GetQualitySettings());
  CameraRequest request(*Driver());
  configured_ = text && request.Send(*text) && request.ReplyBeginsWith("ret=200") ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
