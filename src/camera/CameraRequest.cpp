#include "camera/CameraRequest.h"

#include <string>

#include "device/Device.h"
#include "platform/SecureErase.h"

namespace sarnevo {

namespace {

constexpr u32 kMaxConnections = 16;
constexpr u32 kSystemCodePage = 0;

}  // namespace

CameraRequest::CameraRequest(Device& device, const RequestPolicy& policy)
    : CameraRequest(device.GetAddress().c_str(), device.GetPort(), device.GetUserName().c_str(),
                    device.GetPassword().c_str(),
                    {policy.timeout != kDeviceTimeout ? policy.timeout : device.GetNetworkTimeout(),
                     policy.limit, policy.keeps}) {}

CameraRequest::CameraRequest(IIPDeviceParams& device, const RequestPolicy& policy)
    : CameraRequest(device.GetAddress().c_str(), device.GetPort(), device.GetUserName().c_str(), nullptr,
                    policy) {
  std::string password = device.GetPassword();
  SetPassword(password.c_str());
  platform::SecureErase(password);
}

CameraRequest::CameraRequest(const char* address, u16 port, const char* userName, const char* password,
                             const RequestPolicy& policy)
    : HttpRequest(address, port, userName, password, policy.timeout, kMaxConnections, kSystemCodePage) {
  SetTimeLimit(policy.limit);
  KeepConnection(policy.keeps);
}

}  // namespace sarnevo
