#include "video/CameraRequest.h"

#include "device/Device.h"

namespace sarnevo {

namespace {

constexpr u32 kMaxConnections = 16;
constexpr u32 kSystemCodePage = 0;
// Milliseconds for a whole request. Far above what a slow camera needs; it only ends a reply that comes byte
// by byte for ever, so that the host hears of it through OnNoData.
constexpr u32 kTimeLimit = 300'000;

}  // namespace

CameraRequest::CameraRequest(Device& driver)
    : request_(driver.GetNetworkTimeout(), kMaxConnections, kSystemCodePage), interrupt_(request_) {
  request_.SetHost(driver.GetAddress().c_str());
  request_.SetPort(driver.GetPort());
  request_.SetUserName(driver.GetUserName().c_str());
  request_.SetPassword(driver.GetPassword().c_str());
  request_.SetTimeLimit(kTimeLimit);
}

bool CameraRequest::Send(const std::string& path) { return request_.Send("GET", path.c_str(), false); }

bool CameraRequest::ReplyBeginsWith(const std::string& text) {
  std::string begin(text.size(), '\0');
  u32 filled = 0;
  while (filled < begin.size()) {
    u32 count = 0;
    if (!request_.Read(begin.data() + filled, static_cast<u32>(begin.size()) - filled, &count) || count == 0) {
      return false;
    }
    filled += count;
  }
  return begin == text;
}

}  // namespace sarnevo
