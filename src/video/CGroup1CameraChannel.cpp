#include "video/CGroup1CameraChannel.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "camera/CameraRequest.h"
#include "camera/ReplyBody.h"
#include "device/Device.h"
#include "http/RequestInterrupt.h"
#include "video/Group1Request.h"

namespace sarnevo {

namespace {

// In as many pieces as it comes in, and whatever comes after it.
bool BeginsWithSuccess(Web::HttpRequest& request) {
  constexpr std::string_view kSuccess = "ret=200";
  std::vector<u8> begin;
  ReadBody(request, kSuccess.size(), kReadBlockBytes, begin);
  return std::ranges::equal(begin, kSuccess);
}

}  // namespace

u32 CGroup1CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  const auto text = BuildGroup1Request(Format(), Driver()->GetQualitySettings());
  CameraRequest request(*Driver(), request_policy::kConfiguration);
  const Web::RequestInterrupt interrupt(request);
  configured_ = text && request.Send("GET", text->c_str(), false) && BeginsWithSuccess(request) ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
