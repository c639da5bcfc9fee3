#include "simcam/net/RtspRequest.h"

#include <string_view>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  const std::size_t end = text.find_last_not_of(" \t\r");
  return begin == std::string_view::npos || end == std::string_view::npos ? std::string_view{}
                                                                          : text.substr(begin, end + 1 - begin);
}

}  // namespace

std::optional<RtspRequest> RtspRequest::Extract(std::string& received) {
  const std::size_t blank = received.find("\r\n\r\n");
  if (blank == std::string::npos) {
    return std::nullopt;
  }
  RtspRequest request;
  request.text = received.substr(0, blank + 4);
  received.erase(0, blank + 4);

  const std::string_view head = std::string_view(request.text).substr(0, blank);
  bool first = true;
  for (const std::string_view raw : Split(head, '\n')) {
    const std::string_view line = Trimmed(raw);
    if (first) {
      const std::vector<std::string_view> words = Split(line, ' ');
      request.method = words[0];
      request.uri = words.size() > 1 ? words[1] : "";
      request.version = words.size() > 2 ? words[2] : "";
      first = false;
      continue;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      continue;
    }
    const std::string name = ToUpper(line.substr(0, colon));
    const std::string_view value = Trimmed(line.substr(colon + 1));
    if (name == "CSEQ") request.cseq = value;
    if (name == "TRANSPORT") request.transport = value;
    if (name == "SESSION") request.session = value;
    if (name == "USER-AGENT") request.userAgent = value;
  }
  return request;
}

std::string RtspRequest::path() const {
  constexpr std::string_view kScheme = "rtsp://";
  const std::size_t host = uri.starts_with(kScheme) ? kScheme.size() : 0;
  const std::size_t slash = uri.find('/', host);
  return slash == std::string::npos ? "/" : uri.substr(slash);
}

std::optional<std::pair<std::uint16_t, std::uint16_t>> RtspRequest::clientPorts() const {
  for (const std::string_view part : Split(transport, ';')) {
    constexpr std::string_view kKey = "client_port=";
    if (!part.starts_with(kKey)) {
      continue;
    }
    const std::vector<std::string_view> ports = Split(part.substr(kKey.size()), '-');
    if (ports.size() != 2) {
      return std::nullopt;
    }
    const std::optional<std::uint64_t> rtp = ParseNumber(ports[0], 1, 65535);
    const std::optional<std::uint64_t> rtcp = ParseNumber(ports[1], 1, 65535);
    if (!rtp || !rtcp) {
      return std::nullopt;
    }
    return std::pair(static_cast<std::uint16_t>(*rtp), static_cast<std::uint16_t>(*rtcp));
  }
  return std::nullopt;
}

}  // namespace simcam
