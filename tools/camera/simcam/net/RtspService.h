#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simcam/device/Models.h"
#include "simcam/net/Connection.h"
#include "simcam/net/RtspRequest.h"
#include "simcam/stream/RtpSender.h"

namespace simcam {

/// What RTSP needs of its camera.
class RtspHost {
 public:
  virtual ~RtspHost() = default;
  virtual Group group() const = 0;
  virtual std::string address() const = 0;
  virtual std::string sessionDescription() const = 0;  ///< SDP
  /// Notes the request and says how its reply is to be spoiled.
  virtual std::optional<ReplyFault> OnRtspRequest(const RtspRequest& request) = 0;
  /// A stream to the client, not yet playing; null when no ports are left. The host owns it.
  /// A player gets JPEG in the layout of RFC 2435 alone, whatever the firmware sends its own clients.
  virtual RtpSender* AddStream(const sockaddr_in& rtp, const sockaddr_in& rtcp, bool isPlayer) = 0;
  virtual void PlayStream(RtpSender* stream) = 0;
  virtual void EndStream(RtpSender* stream) = 0;
  virtual std::uint16_t serverPort() const = 0;  ///< of RTP; RTCP is the next
  virtual std::uint64_t DrawSessionNumber() = 0;
};

/// Speaks RTSP (RFC 2326) as the cameras do, whose clients read replies by line position: the lines of each
/// reply and their order are those of the firmware, and group 2 has one more header right after CSeq.
/// A client that names itself, as players do, may ask for any path; what it gets doesn't depend on it.
/// The sessions of a connection end with it.
class RtspService : public ConnectionHandler {
 public:
  RtspService(Connection& connection, RtspHost& host) : connection_(connection), host_(host) {}
  ~RtspService() override;

  void OnBytes(std::string_view bytes) override;

 private:
  struct Session {
    std::string id;
    RtpSender* stream;
  };
  struct Reply {
    unsigned status = 200;
    const char* reason = "OK";
    std::vector<std::string> headers;  ///< after CSeq
    std::string body;
  };
  Reply Answer(const RtspRequest& request);
  Reply Describe(const RtspRequest& request);
  Reply Setup(const RtspRequest& request);
  Session* Find(const std::string& id);
  bool PathFits(const RtspRequest& request) const;
  std::string Write(const RtspRequest& request, const Reply& reply) const;

  Connection& connection_;
  RtspHost& host_;
  std::string received_;
  std::vector<Session> sessions_;
};

}  // namespace simcam
