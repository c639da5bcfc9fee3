#pragma once

#include "camera/RequestPolicy.h"
#include "http/HttpRequest.h"
#include "kolvex/IIPDeviceParams.h"
#include "kolvex/Types.h"

namespace sarnevo {

class Device;

/// Requests to a camera, with its address and credentials and the limits of their kind: the one place where they are
/// made. Causes no traffic.
class CameraRequest : public Web::HttpRequest {
 public:
  /// With the device's data as they are now.
  CameraRequest(Device& device, const RequestPolicy& policy);
  CameraRequest(IIPDeviceParams& device, const RequestPolicy& policy);
  /// Null texts count as empty.
  CameraRequest(const char* address, u16 port, const char* userName, const char* password,
                const RequestPolicy& policy);
};

}  // namespace sarnevo
