#pragma once

#include <string>

#include "http/HttpRequest.h"
#include "http/RequestInterrupt.h"

namespace sarnevo {

class Device;

/// One request to the camera's CGI with the driver's address and credentials. An interrupt of the thread breaks it off.
/// Worker thread only.
class CameraRequest {
 public:
  explicit CameraRequest(Device& driver);
  CameraRequest(const CameraRequest&) = delete;
  CameraRequest& operator=(const CameraRequest&) = delete;

  /// True when the camera has answered, whatever it says.
  bool Send(const std::string& path);
  /// Whether the reply's body begins with @p text, in as many pieces as it may come.
  bool ReplyBeginsWith(const std::string& text);

 private:
  Web::HttpRequest request_;
  const Web::RequestInterrupt interrupt_;
};

}  // namespace sarnevo
