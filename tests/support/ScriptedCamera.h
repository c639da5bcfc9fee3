#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Socket.h"
#include "support/HostLog.h"
#include "support/ScriptedServer.h"

namespace kolvex_test {

using Payload = std::vector<std::uint8_t>;

/// A camera of either group that does as the test says: HTTP on a port of the system's choice, RTSP on 554,
/// RTP to wherever the last SETUP said. Each request becomes a line in the log: "GET" and the path, or the
/// RTSP method, for SETUP with the ports after it.
class ScriptedCamera {
 public:
  using Connection = ScriptedServer::Connection;
  /// Handles a request in the camera's place; false leaves it to the camera. Set before the first request.
  using Script = std::function<bool(Connection&, const std::string& request)>;

  /// @param speaksRtsp  false leaves port 554 to somebody else
  explicit ScriptedCamera(int group, std::string address = "127.0.0.1", bool speaksRtsp = true);
  ~ScriptedCamera() { StopSending(); }

  const char* Address() const { return address_.c_str(); }
  std::uint16_t HttpPort() const { return http_.Port(); }
  HostLog log;
  Script onHttp;
  Script onRtsp;

  /// The reply of a sound camera to an RTSP request.
  std::string Reply(const std::string& request) const;

  /// One RTP packet to the client's port.
  void Send(std::uint16_t sequence, bool marker, const Payload& payload);
  /// A stream of one-packet frames every few milliseconds, until StopSending.
  void StartSending(Payload payload);
  /// Gives the sequence number that would come next.
  std::uint16_t StopSending();

 private:
  void ServeHttp(Connection& connection);
  void ServeRtsp(Connection& connection);

  const int group_;
  const std::string address_;
  sarnevo::platform::Socket socket_;
  std::atomic<std::uint16_t> rtpPort_{0};
  std::thread sender_;
  std::atomic<bool> sending_{false};
  std::atomic<std::uint16_t> sequence_{1};
  ScriptedServer http_;
  std::optional<ScriptedServer> rtsp_;
};

/// A frame that fits one packet, for either codec: small, and right enough to be delivered.
Payload JpegFramePacket(int group);
Payload Mpeg4KeyFramePacket();

}  // namespace kolvex_test
