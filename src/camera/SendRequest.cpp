#include "camera/SendRequest.h"

#include "camera/ReplyBody.h"
#include "camera/RequestPolicy.h"
#include "device/CResultDef.h"
#include "http/HttpStatus.h"

namespace sarnevo::Utils {

namespace {

enum ResultCode : u32 {
  ResultWrongStatus = 6,
  ResultNotSent = 9,
  ResultNoBody = 10,
};

}  // namespace

bool SendRequest(Web::HttpRequest* request, const std::string& path, std::vector<u8>& reply,
                 IDebugMessage* debug, bool readBody, u32 expectedStatus, u32 blockSize) {
  const auto host = [request] {
    return std::string("host ") + request->GetHost() + ":" + std::to_string(request->GetPort());
  };
  const auto fail = [debug](u32 level, ResultCode code, const std::string& text) {
    CResultDef(level, code, "sarnevo::Utils::SendRequest: " + text).Report(debug, 1);
    return false;
  };
  reply.clear();
  const bool sent = request->Send("GET", path.c_str(), false);
  const u32 status = request->GetStatusCode();
  if (!sent || status == 0) {
    // At the level that is dropped: a camera that can't be reached fills no log.
    return fail(DebugLevelDropped, ResultNotSent, "can not send request \"" + path + "\" to " + host());
  }
  if (expectedStatus != 0 ? status != expectedStatus : !Web::IsSuccess(status)) {
    return fail(
        DebugLevelFailure, ResultWrongStatus,
        host() + " sent does not process request \"" + path + "\", status code = " + std::to_string(status));
  }
  if (!readBody) {
    return true;
  }
  ReadBody(*request, kMostReplyBytes + 1, blockSize, reply);
  if (reply.size() > kMostReplyBytes) {
    reply.clear();  // cut, it would be taken for whole
  }
  const bool came = !reply.empty();
  reply.push_back(0);
  return came || fail(DebugLevelFailure, ResultNoBody,
                      "incorrect response for request \"" + path + "\" from " + host());
}

}  // namespace sarnevo::Utils
