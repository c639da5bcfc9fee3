#pragma once

#include <array>

#include "device/ChannelTiming.h"
#include "kolvex/Types.h"
#include "platform/Event.h"
#include "platform/Socket.h"
#include "platform/Time.h"
#include "protocols/RtspReader.h"

namespace sarnevo {

/// The RTSP/1.0 client (RFC 2326) with which a channel asks the camera for a unicast RTP stream: five fixed
/// requests over one TCP connection, and replies that are read line by line, by position and not by header
/// name. How many lines a reply has is part of the protocol towards the two camera groups.
///
/// The flag @p useObjectPath, given with each request, is the group: true for group 1, whose stream is
/// called "/object.sdp"; false for group 2, whose replies have one more line after CSeq.
///
/// Every operation gives false on failure and says nothing else. One thread at a time; each receive blocks
/// it for up to ChannelTiming::rtspReceive. Only Interrupt may come from any thread at any time.
class CRTSPClient {
 public:
  static constexpr u16 kPort = 554;  ///< of every camera

  explicit CRTSPClient(const ChannelTiming& times = {});
  CRTSPClient(const CRTSPClient&) = delete;
  CRTSPClient& operator=(const CRTSPClient&) = delete;

  /// Connects to a camera. Looks every 100 ms whether the connection is up, at least once; one that the
  /// camera refuses may cost the whole time-out.
  /// @param address  dotted IPv4 text; one of more than 15 characters is refused.
  /// @param timeout  milliseconds.
  bool Connect(const char* address, u16 port, u32 timeout) noexcept;
  /// Closes the connection; always true.
  bool Disconnect() noexcept;

  bool Describe(bool useObjectPath) noexcept;
  /// @param rtpPort, rtcpPort  the local UDP ports to which the camera is to send.
  bool Setup(int rtpPort, int rtcpPort, bool useObjectPath) noexcept;
  bool Play(bool useObjectPath) noexcept;
  bool Pause(bool useObjectPath) noexcept;
  /// Sends nothing and fails unless the last Setup succeeded.
  bool Teardown(bool useObjectPath) noexcept;

  /// Gives each later reply only @p time as a whole, for an owner that is taking its leave.
  void LimitReplies(platform::Milliseconds time) noexcept { reader_.LimitReplies(time); }

  /// Makes the operation in progress and every later one fail at once, for good. Any thread may call while
  /// the object lives.
  void Interrupt() noexcept;

 private:
  bool Establish(platform::Milliseconds timeout) noexcept;
  bool AwaitConnection(platform::Milliseconds timeout) noexcept;
  bool IsInterrupted() noexcept;
  void CountRequest() noexcept;
  bool ExchangeInSession(const char* method, bool useObjectPath, int linesAfterHead) noexcept;
  /// @param header  one line with its end, or nothing
  bool Send(const char* method, const char* path, const char* header) noexcept;
  bool ReadReplyHead(bool useObjectPath) noexcept;
  bool ReadStatusLine() noexcept;
  bool ReadDescription() noexcept;
  bool ReadTransportAndSession() noexcept;
  bool ReadText(RtspText& into) noexcept;
  bool DropLines(int count) noexcept;

  const ChannelTiming times_;

  // The calling thread only. What a reply said; much of it is kept for whoever looks with a debugger.
  std::array<char, 16> version_{};  // of the last status line, for example RTSP/1.0
  i32 statusCode_ = 0;
  std::array<char, 16> reason_{};
  i32 cseq_ = 0;        // counter of requests; a reply's number replaces it
  RtspText headerA_{};  // values of the first three headers of a DESCRIBE reply
  RtspText headerB_{};
  i32 contentLength_ = 0;  // bytes
  RtspText transport_{};   // values of the two headers of a SETUP reply
  RtspText session_{};     // goes back to the camera as it came
  i32 clientRtpPort_ = 0;
  i32 clientRtcpPort_ = 0;
  i32 serverRtpPort_ = 0;
  i32 serverRtcpPort_ = 0;
  u32 setupDone_ = 0;        // result of the last Setup
  platform::Socket socket_;  // and Shutdown from any thread
  std::array<char, 16> serverAddress_{};
  u32 serverPort_ = 0;
  std::array<char, 1024> body_{};  // of the DESCRIBE reply, cut to what fits

  std::array<char, 512> request_{};           // the calling thread only: the text that goes out
  platform::Event interrupted_{false, true};  // manual reset, never reset
  RtspReader reader_;
};

}  // namespace sarnevo
