#include "simcam/device/Camera.h"

#include <algorithm>
#include <utility>

#include "simcam/base/Text.h"
#include "simcam/cgi/CgiReply.h"
#include "simcam/device/Control.h"

namespace simcam {

namespace {

constexpr std::size_t kKeptRequests = 300;
constexpr Milliseconds kRetryListen{200};

std::uint64_t SeedOf(const CameraSettings& settings, std::uint64_t number) {
  return settings.seed != 0 ? settings.seed + number : std::random_device{}() * 4294967296ULL + number;
}

}  // namespace

Camera::Camera(EventLoop& loop, StreamHub& hub, Pacer& pacer, const CameraSettings& settings,
               std::uint64_t number)
    : loop_(loop),
      hub_(hub),
      pacer_(pacer),
      settings_(settings),
      number_(number),
      dice_(SeedOf(settings, number)),
      inputs_(loop, *settings.inputs, dice_()),
      outputs_(*settings.outputs),
      head_(*settings.head, settings.pan, settings.tilt, settings.zoom),
      rebootTimer_(loop,
                   [this] {
                     std::string error;
                     if (!Listen(error)) {
                       rebootTimer_.StartOnce(kRetryListen);
                     }
                   }),
      leaveTimer_(loop, [this] { Reboot(goneFor_); }),
      http_(loop,
            [this](Connection& connection) {
              SpoilAtConnect(connection, faults_.http, counters_.faults.httpReplies);
              return std::make_unique<HttpService>(
                  connection, [this](const HttpRequest& request) { return AnswerHttp(request); });
            }),
      rtsp_(loop, [this](Connection& connection) {
        SpoilAtConnect(connection, faults_.rtsp, counters_.faults.rtspReplies);
        return std::make_unique<RtspService>(connection, *this);
      }) {}

Camera::~Camera() = default;

bool Camera::Open(std::string& error) { return Listen(error); }

bool Camera::Listen(std::string& error) {
  const bool wantHttp = faults_.http.kind != ReplyFault::Kind::Refuse;
  const bool wantRtsp = faults_.rtsp.kind != ReplyFault::Kind::Refuse;
  up_ = (!wantHttp || http_.listening() || http_.Listen(settings_.address, settings_.httpPort, error)) &&
        (!wantRtsp || rtsp_.listening() || rtsp_.Listen(settings_.address, settings_.rtspPort, error));
  return up_;
}

void Camera::ApplyRefusal() {
  if (!up_) {
    return;
  }
  if (faults_.http.kind == ReplyFault::Kind::Refuse) http_.StopListening();
  if (faults_.rtsp.kind == ReplyFault::Kind::Refuse) rtsp_.StopListening();
  std::string error;
  if (!Listen(error)) {
    rebootTimer_.StartOnce(kRetryListen);
  }
}

void Camera::Reboot(Milliseconds gone) {
  up_ = false;
  ++counters_.faults.reboots;
  http_.StopListening();
  rtsp_.StopListening();
  http_.DropConnections();
  rtsp_.DropConnections();
  streams_.clear();
  sockets_ = nullptr;
  std::fill(outputs_.begin(), outputs_.end(), false);
  rebootTimer_.StartOnce(gone);
}

void Camera::SpoilAtConnect(Connection& connection, ReplyFault& fault, std::uint64_t& count) {
  if (const std::optional<ReplyFault> taken = fault.TakeAtConnect()) {
    ++count;
    LeaveIfAsked(*taken);
    connection.Reply({}, taken, false);
  }
}

void Camera::LeaveIfAsked(const ReplyFault& fault) {
  if (fault.kind != ReplyFault::Kind::Gone && fault.kind != ReplyFault::Kind::Turn) {
    return;
  }
  if (fault.kind == ReplyFault::Kind::Turn) {
    AnswerAs(settings_.group == Group::One ? Group::Two : Group::One);
  }
  goneFor_ = Milliseconds(fault.value);
  leaveTimer_.StartOnce(Microseconds{0});
}

void Camera::Reseed(std::uint64_t seed) {
  settings_.seed = seed;
  dice_.seed(SeedOf(settings_, number_));
}

void Camera::AnswerAs(Group group) {
  if (settings_.group == group) {
    return;
  }
  settings_.group = group;
  settings_.shape = group == Group::One ? ReplyShape::Ampersand : ReplyShape::Markup;
  if (SizeOf(group, settings_.video.resolution, settings_.video.ntsc).width == 0) {
    settings_.video.resolution = "cif";
  }
  Refit();
}

void Camera::Note(std::string request) {
  requests_.push_back(std::move(request));
  if (requests_.size() > kKeptRequests) {
    requests_.pop_front();
  }
}

void Camera::Configure(const VideoSettings& video) {
  settings_.video = video;
  configured_ = true;
  Refit();
}

void Camera::SetOutput(unsigned index, bool high) {
  outputs_[index] = high;
  if (high) {
    ownView_ = true;
    Refit();
  }
}

void Camera::WriteSerial(std::span<const std::uint8_t> bytes) {
  head_.Write(bytes, Clock::now());
  if (head_.touched() && !ownView_) {
    ownView_ = true;
    Refit();
  }
}

View Camera::Look() {
  View view = head_.Look(Clock::now());
  for (std::size_t i = 0; i < outputs_.size(); ++i) {
    view.lamps |= outputs_[i] ? 1U << i : 0U;
  }
  return view;
}

StreamFormat Camera::Format() const { return FormatOf(settings_.group, settings_.video, *settings_.sampling); }

void Camera::PlayStream(RtpSender* stream) {
  const std::array<double, 3> home = {settings_.pan, settings_.tilt, settings_.zoom};
  StreamFormat format = Format();
  if (stream->isPlayer()) {
    format.layout = JpegLayout::Plain;
  }
  const StreamKey key{format, settings_.caption, home, ownView_ ? number_ + 1 : 0};
  const std::uint32_t first = stream->source() != nullptr ? stream->source()->nextCounter() : 0;
  StreamSource::ViewProvider look = [this] { return Look(); };
  if (!ownView_) {
    // A shared source may outlive this camera and must not look through its eyes.
    const View still{.pan = settings_.pan, .tilt = settings_.tilt, .zoom = settings_.zoom};
    look = [still] { return still; };
  }
  stream->Play(hub_.Get(key, look, first));
}

void Camera::Refit() {
  for (const std::unique_ptr<RtpSender>& stream : streams_) {
    if (stream->playing()) {
      PlayStream(stream.get());
    }
  }
}

RtpSender* Camera::AddStream(const sockaddr_in& rtp, const sockaddr_in& rtcp, bool isPlayer) {
  if (sockets_ == nullptr) {
    sockets_ = UdpPair::Open(loop_, settings_.address, settings_.rtpPort,
                             [this](const sockaddr_in& from, std::span<const std::uint8_t> datagram) {
                               TakeReport(from, datagram);
                             });
  }
  if (sockets_ == nullptr) {
    return nullptr;
  }
  const SenderContext context{loop_, pacer_, *sockets_, faults_, counters_, "camera@" + settings_.address};
  streams_.push_back(std::make_unique<RtpSender>(context, rtp, rtcp, dice_(), isPlayer));
  return streams_.back().get();
}

void Camera::EndStream(RtpSender* stream) {
  std::erase_if(streams_, [stream](const auto& candidate) { return candidate.get() == stream; });
}

void Camera::TakeReport(const sockaddr_in& from, std::span<const std::uint8_t> datagram) {
  const bool taken = std::any_of(streams_.begin(), streams_.end(),
                                 [&](const auto& stream) { return stream->TakeReport(from, datagram); });
  counters_.answersStray += taken ? 0 : 1;
}

std::string Camera::sessionDescription() const {
  const bool jpeg = settings_.video.codec == Codec::Jpeg;
  const char* const control = settings_.group == Group::One ? "a=control:trackID=0\r\n" : "";
  return simcam::Format(
      "v=0\r\no=- 1 1 IN IP4 %s\r\ns=%s\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\nm=video 0 RTP/AVP %d\r\n%s%s",
      settings_.address.c_str(), settings_.model.c_str(), jpeg ? 26 : 96,
      jpeg ? "" : "a=rtpmap:96 MP4V-ES/90000\r\n", control);
}

std::optional<ReplyFault> Camera::OnRtspRequest(const RtspRequest& request) {
  ++counters_.rtspRequests;
  Note("RTSP " + request.text);
  const std::optional<ReplyFault> fault = faults_.rtsp.Take(request.text);
  if (fault) {
    ++counters_.faults.rtspReplies;
    LeaveIfAsked(*fault);
  }
  return fault;
}

bool Camera::Authorized(const HttpRequest& request) const {
  return settings_.userName.empty() ||
         request.authorization == "Basic " + EncodeBase64(settings_.userName + ":" + settings_.password);
}

HttpReply Camera::AnswerHttp(const HttpRequest& request) {
  if (request.target.starts_with(kControlPath)) {
    return AnswerControl(*this, request.target);
  }
  ++counters_.httpRequests;
  Note("HTTP " + request.method + " " + request.target);
  HttpReply reply = RunCgi(request);
  reply.fault = faults_.http.Take(request.target);
  if (reply.fault) {
    ++counters_.faults.httpReplies;
    LeaveIfAsked(*reply.fault);
    if (reply.fault->kind == ReplyFault::Kind::Status) {
      reply.status = reply.fault->value;
    }
  }
  return reply;
}

HttpReply Camera::RunCgi(const HttpRequest& request) {
  HttpReply reply;
  if (!Authorized(request)) {
    ++counters_.authFailures;
    reply.status = 401;
    reply.body = "Unauthorized\r\n";
    return reply;
  }
  const std::string_view target = request.target;
  const std::size_t question = target.find('?');
  const std::string_view path = target.substr(0, question);
  const Parameters parameters =
      Parameters::Parse(question == std::string_view::npos ? std::string_view{} : target.substr(question + 1));
  const std::optional<CgiReply> answer = request.method != "GET" ? std::nullopt
                                         : settings_.group == Group::One
                                             ? RunGroup1Cgi(*this, path, parameters)
                                             : RunGroup2Cgi(*this, path, parameters);
  if (!answer) {
    reply.status = 404;
    reply.body = "Not found\r\n";
    return reply;
  }
  counters_.badRequests += answer->refused ? 1 : 0;
  reply.status = answer->status;
  reply.type = *settings_.shape == ReplyShape::Markup ? "text/html" : "text/plain";
  reply.body = answer->body;
  return reply;
}

CameraStatus Camera::Status() {
  CameraStatus status;
  status.address = settings_.address;
  status.model = settings_.model;
  status.group = settings_.group == Group::One ? "1" : "2";
  status.up = up_;
  status.sessions = static_cast<unsigned>(streams_.size());
  status.playing = static_cast<unsigned>(
      std::count_if(streams_.begin(), streams_.end(), [](const auto& stream) { return stream->playing(); }));
  for (const std::unique_ptr<RtpSender>& stream : streams_) {
    status.framesEncoded =
        std::max(status.framesEncoded, stream->playing() ? stream->source()->nextCounter() : 0);
  }
  status.configured = configured_;
  status.video = settings_.video;
  const StreamFormat format = Format();
  status.format = simcam::Format("%s %ux%u %u fps", format.codec == Codec::Jpeg ? "mjpeg" : "mpeg4",
                                 format.width, format.height, format.fps);
  status.counters = counters_;
  status.faults = faults_;
  status.inputs = inputs_.levels();
  status.outputs = outputs_;
  status.head = head_.Status(Clock::now());
  status.requests.assign(requests_.begin(), requests_.end());
  return status;
}

}  // namespace simcam
