#include "simcam/net/RtspService.h"

#include <arpa/inet.h>

#include <algorithm>
#include <ctime>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr std::size_t kMaxRequest = 16'384;  // bytes

std::string HttpDate() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return Format("%s, %02d %s %d %02d:%02d:%02d GMT", kDays[utc.tm_wday], utc.tm_mday, kMonths[utc.tm_mon],
                utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
}

sockaddr_in WithPort(sockaddr_in address, std::uint16_t port) {
  address.sin_port = htons(port);
  return address;
}

}  // namespace

RtspService::~RtspService() {
  for (const Session& session : sessions_) {
    host_.EndStream(session.stream);
  }
}

void RtspService::OnBytes(std::string_view bytes) {
  received_ += bytes;
  while (std::optional<RtspRequest> request = RtspRequest::Extract(received_)) {
    const std::optional<ReplyFault> fault = host_.OnRtspRequest(*request);
    Reply reply;
    if (fault && fault->kind == ReplyFault::Kind::Status) {
      reply.status = fault->value;
      reply.reason = "Fault";
    } else {
      reply = Answer(*request);
    }
    if (fault) {
      fault->Lengthen(reply.body);
    }
    connection_.Reply(Write(*request, reply), fault, false);
  }
  if (received_.size() > kMaxRequest) {
    connection_.Close();
  }
}

bool RtspService::PathFits(const RtspRequest& request) const {
  if (!request.userAgent.empty()) {
    return true;  // a player, whose person types any path
  }
  if (host_.group() == Group::Two) {
    return request.path() == "/";
  }
  return request.path() == (request.method == "SETUP" ? "/object.sdp/trackID=0" : "/object.sdp");
}

RtspService::Session* RtspService::Find(const std::string& id) {
  const auto found =
      std::find_if(sessions_.begin(), sessions_.end(), [&id](const Session& s) { return s.id == id; });
  return found == sessions_.end() ? nullptr : &*found;
}

RtspService::Reply RtspService::Answer(const RtspRequest& request) {
  if (request.version != "RTSP/1.0" || request.cseq.empty()) {
    return {400, "Bad Request", {}, {}};
  }
  if (!PathFits(request)) {
    return {404, "Not Found", {}, {}};
  }
  if (request.method == "OPTIONS" || request.method == "GET_PARAMETER") {
    // Players ask with either now and then whether a camera is still there.
    return {200, "OK", {"Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER"}, {}};
  }
  if (request.method == "DESCRIBE") {
    return Describe(request);
  }
  if (request.method == "SETUP") {
    return Setup(request);
  }
  Session* const session = Find(request.session);
  if (session == nullptr) {
    return {454, "Session Not Found", {}, {}};
  }
  const std::string header = "Session: " + session->id;
  if (request.method == "PLAY") {
    host_.PlayStream(session->stream);
    return request.userAgent.empty() ? Reply{200, "OK", {header}, {}}
                                     : Reply{200, "OK", {header, "Range: npt=0.000-"}, {}};
  }
  if (request.method == "PAUSE") {
    session->stream->Pause();
    return {200, "OK", {header}, {}};
  }
  if (request.method == "TEARDOWN") {
    host_.EndStream(session->stream);
    std::erase_if(sessions_, [session](const Session& s) { return s.stream == session->stream; });
    return {200, "OK", {}, {}};
  }
  return {501, "Not Implemented", {}, {}};
}

RtspService::Reply RtspService::Describe(const RtspRequest& request) {
  Reply reply;
  reply.body = host_.sessionDescription();
  reply.headers = {"Content-Base: " + request.uri + (request.uri.ends_with('/') ? "" : "/"),
                   "Content-Type: application/sdp"};
  return reply;
}

RtspService::Reply RtspService::Setup(const RtspRequest& request) {
  const auto ports = request.clientPorts();
  if (!ports || !request.transport.starts_with("RTP/AVP") ||
      request.transport.find("unicast") == std::string::npos) {
    return {461, "Unsupported Transport", {}, {}};
  }
  RtpSender* const stream =
      host_.AddStream(WithPort(connection_.peer(), ports->first), WithPort(connection_.peer(), ports->second),
                      !request.userAgent.empty());
  if (stream == nullptr) {
    return {453, "Not Enough Bandwidth", {}, {}};
  }
  const std::string id =
      Format("%08llu", static_cast<unsigned long long>(host_.DrawSessionNumber() % 100'000'000));
  sessions_.push_back({id, stream});
  const unsigned server = host_.serverPort();
  return {200,
          "OK",
          {Format("Transport: RTP/AVP;unicast;client_port=%u-%u;server_port=%u-%u", ports->first, ports->second,
                  server, server + 1),
           "Session: " + id},
          {}};
}

std::string RtspService::Write(const RtspRequest& request, const Reply& reply) const {
  std::string text = Format("RTSP/1.0 %u %s\r\nCSeq: %s\r\n", reply.status, reply.reason,
                            request.cseq.empty() ? "0" : request.cseq.c_str());
  if (host_.group() == Group::Two) {
    text += "Date: " + HttpDate() + "\r\n";
  }
  for (const std::string& header : reply.headers) {
    text += header + "\r\n";
  }
  if (!reply.body.empty()) {
    text += Format("Content-Length: %zu\r\n", reply.body.size());
  }
  return text + "\r\n" + reply.body;
}

}  // namespace simcam
