#include "camera/SendRequest.h"

#include <optional>

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

bool IsExpected(u32 status, u32 expected) {
  return expected != 0 ? status == expected : Web::IsSuccess(status);
}

}  // namespace

bool SendRequest(Web::HttpRequest* request, const std::string& path, std::vector<u8>& reply,
                 IDebugMessage* debug, bool readBody, u32 expectedStatus, u32 blockSize) {
  const auto host = [request] {
    return std::string("host ") + request->GetHost() + ":" + std::to_string(request->GetPort());
  };
  std::optional<CResultDef> failed;
  reply.clear();
  const bool sent = request->Send("GET", path.c_str(), false);
  const u32 status = request->GetStatusCode();
  if (!sent || status == 0) {
    // At the level that is dropped: a camera that can't be reached fills no log.
    failed.emplace(DebugLevelDropped, ResultNotSent,
                   "sarnevo::Utils::SendRequest: can not send request \"" + path + "\" to " + host());
  } else if (!IsExpected(status, expectedStatus)) {
    failed.emplace(DebugLevelFailure, ResultWrongStatus,
                   "sarnevo::Utils::SendRequest: " + host() + " sent does not process request \"" + path +
                       "\", status code = " + std::to_string(status));
  } else if (readBody) {
    ReadBody(*request, kMostReplyBytes + 1, blockSize, reply);
    if (reply.size() > kMostReplyBytes) {
      reply.clear();  // cut, it would be taken for whole
    }
    if (reply.empty()) {
      failed.emplace(
          DebugLevelFailure, ResultNoBody,
          "sarnevo::Utils::SendRequest: incorrect response for request \"" + path + "\" from " + host());
    }
    reply.push_back(0);
  }
  if (failed) {
    failed->Report(debug, 1);
  }
  return !failed;
}

}  // namespace sarnevo::Utils
