#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace simcam {

/// One RTSP request (RFC 2326).
struct RtspRequest {
  std::string text;  ///< as it came, with its blank line
  std::string method, uri, version;
  std::string cseq, transport, session;  ///< header values, empty when absent
  std::string userAgent;                 ///< the same; the cameras' own clients send none

  /// The path of the URI: what follows rtsp://host:port, at least "/".
  std::string path() const;

  /// The two numbers after "client_port=" of the Transport header; nothing unless both are ports.
  std::optional<std::pair<std::uint16_t, std::uint16_t>> clientPorts() const;

  /// Takes the first whole request out of the bytes received so far; nothing while it isn't complete.
  static std::optional<RtspRequest> Extract(std::string& received);
};

}  // namespace simcam
