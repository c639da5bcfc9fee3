#include "camera/DetectCameraGroup.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "camera/CgiText.h"
#include "camera/ReplyBody.h"
#include "camera/RequestPolicy.h"
#include "camera/SendRequest.h"
#include "http/HttpStatus.h"

namespace sarnevo {

namespace {

// A reply with all of these is one of group 1's; the values don't matter.
constexpr std::array kGroup1Keys = {"ret", "method", "servertime", "serverdate"};

}  // namespace

u32 DetectCameraGroup(Web::HttpRequest* request) {
  // Only group 2 has this CGI.
  if (request->Send("GET", "GetTime.cgi", false) && request->GetStatusCode() == Web::kStatusOk) {
    return 2;
  }
  std::vector<u8> reply;
  if (!Utils::SendRequest(request, "time.cgi?action=retrieve", reply, nullptr, true, 0, kReadBlockBytes)) {
    return 0;
  }
  const std::string text = ToLowerText(TextOf(reply));
  const bool all = std::all_of(kGroup1Keys.begin(), kGroup1Keys.end(), [&text](const char* key) {
    return !GetCgiValue(text, key, "=", "\r\n &").empty();
  });
  return all ? 1 : 0;
}

}  // namespace sarnevo
