#include "protocols/CRTSPClient.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

#include "protocols/RtspReply.h"

namespace sarnevo {

using platform::Milliseconds;
using platform::SocketAddress;
using platform::SocketError;

namespace {

constexpr u32 kReceiveBuffer = 0x10000;
// No camera describes its one stream in more; a reply that promises more is none.
constexpr i32 kMaxDescriptionBytes = 65'536;

const char* StreamPath(bool useObjectPath) noexcept { return useObjectPath ? "/object.sdp" : "/"; }

const char* TrackPath(bool useObjectPath) noexcept { return useObjectPath ? "/object.sdp/trackID=0" : "/"; }

// Keeps what fits, zero-terminated.
template <std::size_t size>
void Keep(std::string_view text, std::array<char, size>& into) noexcept {
  const std::size_t kept = std::min(text.size(), size - 1);
  std::copy_n(text.data(), kept, into.begin());
  into[kept] = '\0';
}

}  // namespace

CRTSPClient::CRTSPClient(const ChannelTiming& times) : times_(times), reader_(socket_, interrupted_, times) {}

bool CRTSPClient::Connect(const char* address, u16 port, u32 timeout) noexcept {
  const std::string_view dotted = address != nullptr ? address : "";
  if (dotted.size() >= serverAddress_.size()) {
    return false;
  }
  Keep(dotted, serverAddress_);
  serverPort_ = port;
  reader_.Reset();
  socket_.Open(platform::Transport::Tcp);
  if (!Establish(Milliseconds{timeout})) {
    socket_.Close();
    return false;
  }
  return true;
}

bool CRTSPClient::Establish(Milliseconds timeout) noexcept {
  const auto peer = SocketAddress::Parse(serverAddress_.data(), static_cast<u16>(serverPort_));
  if (!peer || !socket_.SetReceiveBuffer(kReceiveBuffer) || !socket_.SetNonBlocking(true)) {
    return false;
  }
  const SocketError error = socket_.Connect(*peer);
  if (error == SocketError::NotYet ? !AwaitConnection(timeout) : error != SocketError::None) {
    return false;
  }
  return socket_.SetNonBlocking(false) && !IsInterrupted();
}

bool CRTSPClient::AwaitConnection(Milliseconds timeout) noexcept {
  const auto attempts = std::max<Milliseconds::rep>(timeout / times_.rtspConnectStep, 1);
  for (Milliseconds::rep i = 0; i < attempts; ++i) {
    if (interrupted_.Wait(times_.rtspConnectStep)) {
      return false;
    }
    if (socket_.WaitWritable(Milliseconds{0})) {
      return true;
    }
  }
  return false;
}

bool CRTSPClient::Disconnect() noexcept {
  socket_.Close();
  return true;
}

bool CRTSPClient::Describe(bool useObjectPath) noexcept {
  cseq_ = 1;
  return Send("DESCRIBE", StreamPath(useObjectPath), "") && ReadReplyHead(useObjectPath) && ReadDescription();
}

bool CRTSPClient::Setup(int rtpPort, int rtcpPort, bool useObjectPath) noexcept {
  CountRequest();
  char transport[80];
  std::snprintf(transport, sizeof(transport), "Transport: RTP/AVP;unicast;client_port=%d-%d\r\n", rtpPort,
                rtcpPort);
  const bool done = Send("SETUP", TrackPath(useObjectPath), transport) && ReadReplyHead(useObjectPath) &&
                    ReadTransportAndSession();
  setupDone_ = done ? 1 : 0;
  return done;
}

bool CRTSPClient::Play(bool useObjectPath) noexcept { return ExchangeInSession("PLAY", useObjectPath, 2); }

bool CRTSPClient::Pause(bool useObjectPath) noexcept { return ExchangeInSession("PAUSE", useObjectPath, 2); }

bool CRTSPClient::Teardown(bool useObjectPath) noexcept {
  return setupDone_ != 0 && ExchangeInSession("TEARDOWN", useObjectPath, 1);
}

void CRTSPClient::Interrupt() noexcept {
  interrupted_.Set();
  socket_.Shutdown();
}

bool CRTSPClient::IsInterrupted() noexcept { return interrupted_.Wait(Milliseconds{0}); }

// The camera may have set the counter to any number, so that it counts round.
void CRTSPClient::CountRequest() noexcept { cseq_ = static_cast<i32>(static_cast<u32>(cseq_) + 1); }

// The number of lines after the head is the cameras' own: what they send more is left for the next reply,
// which copes with one blank line.
bool CRTSPClient::ExchangeInSession(const char* method, bool useObjectPath, int linesAfterHead) noexcept {
  CountRequest();
  char session[280];
  std::snprintf(session, sizeof(session), "Session: %s\r\n", session_.data());
  return Send(method, StreamPath(useObjectPath), session) && ReadReplyHead(useObjectPath) &&
         DropLines(linesAfterHead);
}

// A request that was cut to the buffer never goes out.
bool CRTSPClient::Send(const char* method, const char* path, const char* header) noexcept {
  const int length =
      std::snprintf(request_.data(), request_.size(), "%s rtsp://%s:%u%s RTSP/1.0\r\nCSeq: %d\r\n%s\r\n",
                    method, serverAddress_.data(), serverPort_, path, cseq_, header);
  if (length < 0 || static_cast<std::size_t>(length) >= request_.size() || IsInterrupted()) {
    return false;
  }
  const auto text = std::as_bytes(std::span(request_)).first(static_cast<std::size_t>(length));
  const platform::ReceiveResult sent = socket_.Send({reinterpret_cast<const u8*>(text.data()), text.size()});
  return sent.error == SocketError::None && sent.count == text.size();
}

bool CRTSPClient::ReadReplyHead(bool useObjectPath) noexcept {
  reader_.BeginReply();
  if (!ReadStatusLine() || !reader_.ReadLine()) {
    return false;
  }
  const auto cseq = rtsp::ParseNumberHeader(reader_.Line());
  if (!cseq) {
    return false;
  }
  cseq_ = *cseq;
  return useObjectPath || DropLines(1);
}

bool CRTSPClient::ReadStatusLine() noexcept {
  // The blank line may be left over from the reply before.
  if (!reader_.ReadLine() || (reader_.LineBeganWithCr() && !reader_.ReadLine())) {
    return false;
  }
  const auto status = rtsp::ParseStatusLine(reader_.Line());
  if (!status) {
    return false;
  }
  Keep(status->version, version_);
  statusCode_ = status->statusCode;
  Keep(status->reason, reason_);
  return true;
}

bool CRTSPClient::ReadDescription() noexcept {
  if (!ReadText(headerA_) || !ReadText(headerB_) || !reader_.ReadLine()) {
    return false;
  }
  contentLength_ = rtsp::ParseNumberHeader(reader_.Line()).value_or(contentLength_);
  if (!DropLines(1) || contentLength_ < 0 || contentLength_ > kMaxDescriptionBytes) {
    return false;
  }
  body_.fill('\0');
  return reader_.ReadBody(static_cast<std::size_t>(contentLength_), std::span(body_).first(body_.size() - 1));
}

bool CRTSPClient::ReadTransportAndSession() noexcept {
  if (!ReadText(transport_) || !reader_.ReadLine()) {
    return false;
  }
  if (const auto session = rtsp::ParseTextHeader(reader_.Line())) {
    Keep(*session, session_);
  }
  // RTCP goes to where the camera's reports come from and RTP comes from wherever it does; a camera that doesn't
  // name its ports is one that hasn't understood.
  const auto client = rtsp::ParsePorts(transport_.data(), "client_port=", ";");
  const auto server = rtsp::ParsePorts(transport_.data(), "server_port=", "");
  if (!client || !server) {
    return false;
  }
  clientRtpPort_ = client->rtp;
  clientRtcpPort_ = client->rtcp;
  serverRtpPort_ = server->rtp;
  serverRtcpPort_ = server->rtcp;
  return DropLines(1);
}

bool CRTSPClient::ReadText(RtspText& into) noexcept {
  if (!reader_.ReadLine()) {
    return false;
  }
  const auto text = rtsp::ParseTextHeader(reader_.Line());
  if (text) {
    Keep(*text, into);
  }
  return text.has_value();
}

bool CRTSPClient::DropLines(int count) noexcept {
  for (int i = 0; i < count; ++i) {
    if (!reader_.ReadLine()) {
      return false;
    }
  }
  return true;
}

}  // namespace sarnevo
