#include "Diagnosis.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

namespace kolvex_host {

namespace {

constexpr sarnevo::u16 kRtspPort = 554;
/// The driver's range for RTP, an even port each; RTCP is the next.
constexpr sarnevo::u16 kFirstRtpPort = 3556;
constexpr sarnevo::u16 kEndOfRtpPorts = 4556;
constexpr int kPacketMs = 2000;  // far more than a stream needs to begin

/// What a camera of a group, and nothing else, answers.
struct Mark {
  const char* group;
  const char* path;
  const char* key;  // lower case
};
constexpr auto kMarks = std::to_array<Mark>({
    {"1", "time.cgi?action=retrieve", "servertime="},
    {"2", "GetCameraType.cgi", "cameratype="},
});

bool Bears(const Answer& answer, const Mark& mark) {
  std::string body = answer.body;
  std::transform(body.begin(), body.end(), body.begin(), [](unsigned char c) { return std::tolower(c); });
  return answer.status == 200 && body.find(mark.key) != std::string::npos;
}

/// An answer that says enough by itself.
std::optional<Reason> ReasonOf(const Answer& answer, const std::string& place, const Login& login) {
  using Cause = Reason::Cause;
  switch (answer.state) {
    case Answer::State::Unreachable:
      return Reason{Cause::Nobody, ExitCode::Camera,
                    fmt::format("Nobody answers at {}, {}", place, answer.detail),
                    "check the address, the camera's power and the cable"};
    case Answer::State::Refused:
      return Reason{Cause::Refused, ExitCode::Camera,
                    fmt::format("The machine at {} refuses the connection (Connection refused)", place),
                    "check the address and the port"};
    case Answer::State::Silent:
      return Reason{Cause::Silent, ExitCode::Camera,
                    fmt::format("What is at {} takes connections, but doesn't answer", place),
                    "switch the camera off and on, or check the port"};
    case Answer::State::OtherProtocol:
      return Reason{Cause::NotOfFamily, ExitCode::Camera,
                    fmt::format("What answers at {} is no camera of this family, it doesn't speak HTTP", place),
                    "check the address and the port"};
    case Answer::State::Answered:
      break;
  }
  if (answer.status == 401 && answer.challenge.find("digest") != std::string::npos &&
      answer.challenge.find("basic") == std::string::npos) {
    return Reason{
        Cause::OtherLogin, ExitCode::Camera,
        fmt::format("What answers at {} is no camera of this family, it asks for a Digest login", place),
        "check the address"};
  }
  if (answer.status == 503) {  // Service Unavailable (RFC 9110)
    return Reason{Cause::Busy, ExitCode::Camera,
                  fmt::format("What answers at {} has no time for requests, it gives the status 503", place),
                  "end other viewers of this camera, or try again in a minute"};
  }
  if (answer.status == 401 || answer.status == 403) {
    return Reason{Cause::WrongLogin, ExitCode::Login,
                  fmt::format("The camera at {} wants another user name or password", place),
                  login.typed ? "type them once more"
                              : "set KOLVEX_USER and KOLVEX_PASSWORD, or give --user or --credentials"};
  }
  return std::nullopt;
}

/// A UDP port of this machine for the time of a look.
class ProbePort {
 public:
  ProbePort() : descriptor_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    // From the end that the driver reaches last, so that no stream loses its port to a look.
    for (unsigned port = kEndOfRtpPorts - 2U; port >= kFirstRtpPort && port_ == 0; port -= 2) {
      sockaddr_in own{};
      own.sin_family = AF_INET;
      own.sin_port = htons(static_cast<sarnevo::u16>(port));
      if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0) {
        port_ = port;
      }
    }
  }
  ~ProbePort() { close(descriptor_); }
  ProbePort(const ProbePort&) = delete;
  ProbePort& operator=(const ProbePort&) = delete;

  /// 0 when all are taken.
  unsigned Port() const { return port_; }
  bool Receives(const std::stop_token& stop) const {
    constexpr int kStep = 100;
    for (int waited = 0; waited < kPacketMs && !stop.stop_requested(); waited += kStep) {
      pollfd packet{descriptor_, POLLIN, 0};
      if (poll(&packet, 1, kStep) > 0) {
        return true;
      }
    }
    return false;
  }

 private:
  int descriptor_;
  unsigned port_ = 0;
};

/// The codec of a session description (RFC 4566); nothing when it names none that the driver knows.
std::optional<sarnevo::Codec> CodecOf(std::string sdp) {
  std::transform(sdp.begin(), sdp.end(), sdp.begin(), [](unsigned char c) { return std::tolower(c); });
  if (sdp.find("mp4v-es") != std::string::npos) {
    return sarnevo::CodecMPEG4;
  }
  const std::size_t media = sdp.find("m=video ");
  const std::string line =
      media == std::string::npos ? "" : sdp.substr(media, sdp.find_first_of("\r\n", media) - media);
  const bool jpeg =
      line.ends_with(" 26") || sdp.find(" jpeg/90000") != std::string::npos;  // RFC 3551: 26 is JPEG
  return jpeg ? std::optional(sarnevo::CodecMJPEG) : std::nullopt;
}

const char* NameOf(sarnevo::Codec codec) { return codec == sarnevo::CodecMJPEG ? "MJPEG" : "MPEG-4"; }

}  // namespace

const char* Reason::Name() const {
  constexpr const char* kNames[] = {"nobody",          "refused",      "silent",        "busy",
                                    "wrong-login",     "other-login",  "not-of-family", "wrong-group",
                                    "rtsp-nobody",     "rtsp-refused", "other-codec",   "ports-taken",
                                    "packets-blocked", "unusable"};
  return kNames[static_cast<int>(cause)];
}

Diagnosis::Diagnosis(const CameraConfig& camera, Login login)
    : place_{camera.address, camera.port},
      group_(camera.Group()),
      codec_(camera.codec),
      login_(std::move(login)) {}

std::optional<Reason> Diagnosis::WhyNoAnswer(std::stop_token stop) const {
  CameraTalk talk(stop);
  std::string found;
  // The record's own group first: an ordinary camera is asked once.
  const std::size_t first = group_ == "2" ? 1 : 0;
  for (std::size_t i = 0; i < kMarks.size() && found.empty(); ++i) {
    const Mark& mark = kMarks[(first + i) % kMarks.size()];
    const Answer answer = talk.Get(place_, mark.path, login_);
    if (auto reason = ReasonOf(answer, place_.Text(), login_)) {
      return reason;
    }
    if (Bears(answer, mark)) {
      found = mark.group;
    }
  }
  if (found.empty()) {
    return Reason{Reason::Cause::NotOfFamily, ExitCode::Camera,
                  fmt::format("What answers at {} is no camera of this family", place_.Text()),
                  "check the address and the port"};
  }
  if (!group_.empty() && found != group_) {
    return Reason{Reason::Cause::WrongGroup, ExitCode::Camera,
                  fmt::format("The camera at {} is of group {}, not of group {}", place_.Text(), found, group_),
                  fmt::format("give group={}, or save it again with query --save", found)};
  }
  return std::nullopt;
}

Reason Diagnosis::WhyNoPicture(const Seen& seen, std::stop_token stop) const {
  if (auto reason = WhyNoAnswer(stop)) {
    return *reason;
  }
  if (auto reason = WhyNoStream(seen, stop)) {
    return *reason;
  }
  if (seen.frames != 0) {
    return {Reason::Cause::Unusable, ExitCode::Camera,
            fmt::format("No picture of the camera at {} can be decoded", place_.Text()),
            "look for packets that get lost on the way, or for another program that sets this camera"};
  }
  return {Reason::Cause::Unusable, ExitCode::NoFrames,
          fmt::format("The camera at {} streams to this machine, but the driver gets no picture of it",
                      place_.Text()),
          "it may refuse the wanted size, rate or quality, or lose packets on the way"};
}

std::optional<Reason> Diagnosis::WhyNoStream(const Seen& seen, std::stop_token stop) const {
  using Cause = Reason::Cause;
  const std::string place = fmt::format("{}:{}", place_.address, kRtspPort);
  const std::string base = fmt::format("rtsp://{}/{}", place, group_ == "1" ? "object.sdp" : "");
  const std::string track = group_ == "1" ? base + "/trackID=0" : base;

  CameraTalk talk(stop);
  const Answer described = talk.Ask(CameraTalk::Rtsp::Describe, base);
  if (described.state != Answer::State::Answered) {
    const bool refused = described.state == Answer::State::Refused;
    return Reason{Cause::RtspNobody, ExitCode::NoFrames,
                  fmt::format("The camera answers over HTTP, but its RTSP port {} {}", place,
                              refused ? "refuses the connection" : "doesn't answer"),
                  "switch RTSP on in the camera, restart it, or open TCP port 554 in the firewall between"};
  }
  if (const auto streams = CodecOf(described.body); streams && *streams != codec_) {
    return Reason{Cause::OtherCodec, ExitCode::Camera,
                  fmt::format("The camera at {} streams {}, not {} as asked", place_.Text(), NameOf(*streams),
                              NameOf(codec_)),
                  fmt::format("ask for codec={}, or look who else sets this camera",
                              *streams == sarnevo::CodecMJPEG ? "mjpeg" : "mpeg4")};
  }
  const ProbePort port;
  if (port.Port() == 0) {
    return Reason{
        Cause::PortsTaken, ExitCode::NoFrames,
        fmt::format("All UDP ports from {} to {} of this machine are taken", kFirstRtpPort, kEndOfRtpPorts - 1),
        "end another program that receives video here"};
  }
  const auto refusal = [&](const char* request, const Answer& answer) {
    return Reason{Cause::RtspRefused, ExitCode::NoFrames,
                  answer.status != 0
                      ? fmt::format("The camera at {} refuses the stream, RTSP {} gets the status {}", place,
                                    request, answer.status)
                      : fmt::format("The camera at {} doesn't answer RTSP {}", place, request),
                  "end other viewers of this camera, or restart it"};
  };
  const Answer setup = talk.Ask(CameraTalk::Rtsp::Setup, track,
                                fmt::format("RTP/AVP;unicast;client_port={}-{}", port.Port(), port.Port() + 1));
  if (setup.status != 200) {
    return refusal("SETUP", setup);
  }
  const Answer play = talk.Ask(CameraTalk::Rtsp::Play, base);
  if (play.status != 200) {
    return refusal("PLAY", play);
  }
  const bool arrives = port.Receives(stop);
  talk.Ask(CameraTalk::Rtsp::Teardown, base);
  if (!arrives && seen.frames == 0) {
    return Reason{Cause::PacketsBlocked, ExitCode::NoFrames,
                  fmt::format("The camera at {} says that it streams, but no packet arrives", place_.Text()),
                  fmt::format("open the UDP ports {} to {} in the firewall of this machine and between",
                              kFirstRtpPort, kEndOfRtpPorts - 1)};
  }
  return std::nullopt;
}

}  // namespace kolvex_host
