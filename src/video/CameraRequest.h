#pragma once

#include <string>

#include "http/HttpRequest.h"
#include "video/InterruptGate.h"

namespace sarnevo {

class Device;

/// One request to the camera's CGI with the driver's address and credentials, which the gate can interrupt.
/// Worker thread only.
class CameraRequest {
 public:
  CameraRequest(Device& driver, InterruptGate& gate);
  ~CameraRequest();
  CameraRequest(const CameraRequest&) = delete;
  CameraRequest& operator=(const CameraRequest&) = delete;

  /// True when the camera has answered, whatever it says.
  bool Send(const std::string& path);
  /// Whether the reply's body begins with @p text, in as many pieces as it may come.
  bool ReplyBeginsWith(const std::string& text);

 private:
  InterruptGate& gate_;
  Web::HttpRequest request_;
};

}  // namespace sarnevo
