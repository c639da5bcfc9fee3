#include "camera/SendRequest.h"

#include <algorithm>
#include <optional>

#include "device/CResultDef.h"

namespace sarnevo::Utils {

namespace {

constexpr std::size_t kMaxReplyBytes = 1'000'000;  // far above anything a camera has to say

enum ResultCode : u32 {
  ResultWrongStatus = 6,
  ResultNotSent = 9,
  ResultNoBody = 10,
};

// The texts of the three failures. Most requests need none.
struct Failure {
  Failure(const Web::HttpRequest& request, const std::string& requestPath)
      : host(std::string("host ") + request.GetHost() + ":" + std::to_string(request.GetPort())),
        path(requestPath) {}

  const std::string function = "sarnevo::Utils::SendRequest";
  const std::string host;
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
  // Most replies come in one piece, which goes straight to its place.
  u32 available = 0;
  while (reply.size() < kMaxReplyBytes && (available = request.GetDataAvailable()) > 0) {
    const std::size_t before = reply.size();
    u32 count = 0;
    reply.resize(before + std::min(available, blockSize));
    const bool read = request.Read(&reply[before], static_cast<u32>(reply.size() - before), &count);
    reply.resize(before + count);
    if (!read || count == 0) {
      break;
    }
  }
}

}  // namespace

bool SendRequest(Web::HttpRequest* request, const std::string& path, std::vector<u8>& reply,
                 IDebugMessage* debug, bool readBody, u32 expectedStatus, u32 blockSize) {
  std::optional<CResultDef> failed;
  reply.clear();
  const bool sent = request->Send("GET", path.c_str(), false);
  const u32 status = request->GetStatusCode();
  if (!sent || status == 0) {
    failed = Failure(*request, path).NotSent();
  } else if (!IsExpected(status, expectedStatus)) {
    failed = Failure(*request, path).WrongStatus(status);
  } else if (readBody) {
    ReadBody(*request, reply, blockSize);
    if (reply.empty()) {
      failed = Failure(*request, path).NoBody();
    }
    reply.push_back(0);
  }
  if (failed) {
    failed->Report(debug, 1);
  }
  return !failed;
}

}  // namespace sarnevo::Utils
