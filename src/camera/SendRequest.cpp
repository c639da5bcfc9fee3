#include "camera/SendRequest.h"

#include "xml/CResultDef.h"

namespace sarnevo::Utils {

namespace {

constexpr std::size_t kMaxReplyBytes = 1'000'000;  // far above anything a camera has to say

enum ResultCode : u32 {
  ResultWrongStatus = 6,
  ResultNotSent = 9,
  ResultNoBody = 10,
};

// The texts of the three failures.
struct Failure {
  std::string function = "sarnevo::Utils::SendRequest";
  std::string host;
  const std::string& path;

  CResultDef NotSent() const {
    // At the level that is dropped: a camera that can't be reached fills no log.
    return {DebugLevelDropped, ResultNotSent, function + ": can not send request \"" + path + "\" to " + host};
  }
  CResultDef WrongStatus(u32 status) const {
    return {DebugLevelFailure, ResultWrongStatus,
            function + ": " + host + " sent does not process request \"" + path +
                "\", status code = " + std::to_string(status)};
  }
  CResultDef NoBody() const {
    return {DebugLevelFailure, ResultNoBody,
            function + ": incorrect response for request \"" + path + "\" from " + host};
  }
};

bool IsExpected(u32 status, u32 expected) { return expected != 0 ? status == expected : status / 100 == 2; }

void ReadBody(Web::HttpRequest& request, std::vector<u8>& reply, u32 blockSize) {
  std::vector<u8> block(blockSize);
  u32 count = 0;
  while (reply.size() < kMaxReplyBytes && request.Read(block.data(), blockSize, &count) && count > 0) {
    reply.insert(reply.end(), block.begin(), block.begin() + count);
  }
}

}  // namespace

bool SendRequest(Web::HttpRequest* request, const std::string& path, std::vector<u8>& reply,
                 IDebugMessage* debug, bool readBody, u32 expectedStatus, u32 blockSize) {
  CResultDef result(DebugLevelEvent, 0, {});
  reply.clear();
  const bool sent = request->Send("GET", path.c_str(), false);
  const u32 status = request->GetStatusCode();
  const Failure failure{
      .host = std::string("host ") + request->GetHost() + ":" + std::to_string(request->GetPort()),
      .path = path};
  if (!sent || status == 0) {
    result = failure.NotSent();
  } else if (!IsExpected(status, expectedStatus)) {
    result = failure.WrongStatus(status);
  } else if (readBody) {
    ReadBody(*request, reply, blockSize);
    if (reply.empty()) {
      result = failure.NoBody();
    }
    reply.push_back(0);
  }
  if (result.code != 0) {
    result.Report(debug, 1);
  }
  return result.code == 0;
}

}  // namespace sarnevo::Utils
