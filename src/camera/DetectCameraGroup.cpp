#include "camera/DetectCameraGroup.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "camera/CgiText.h"
#include "camera/SendRequest.h"

namespace sarnevo {

namespace {

constexpr u32 kStatusOk = 200;
constexpr u32 kBlockBytes = 8096;
// A reply with all of these is one of group 1's; the values don't matter.
constexpr std::array kGroup1Keys = {"ret", "method", "servertime", "serverdate"};

}  // namespace

u32 DetectCameraGroup(Web::HttpRequest* request) {
  // Only group 2 has this CGI.
  if (request->Send("GET", "GetTime.cgi", false) && request->GetStatusCode() == kStatusOk) {
    return 2;
  }
  std::vector<u8> reply;
  if (!Utils::SendRequest(request, "time.cgi?action=retrieve", reply, nullptr, true, 0, kBlockBytes)) {
    return 0;
  }
  const std::string text = ToLowerText(reinterpret_cast<const char*>(reply.data()));  // up to its zero
  const bool all = std::all_of(kGroup1Keys.begin(), kGroup1Keys.end(), [&text](const char* key) {
    return !GetCgiValue(text, key, "=", "\r\n &").empty();
  });
  return all ? 1 : 0;
}

}  // namespace sarnevo
