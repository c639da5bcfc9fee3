#include "platform/posix/KeptConnection.h"

#include <array>
#include <exception>
#include <iterator>
#include <numeric>
#include <utility>

#include "platform/SecureErase.h"
#include "platform/posix/BasicCredentials.h"

namespace sarnevo::platform::posix {

namespace {

// Target and credentials of a request that fits into one segment, which no other has to be waited for, and so into
// the send buffer of an idle connection.
constexpr std::size_t kMaxText = 512;
// Of all heads of a reply; more is for who counts exactly.
constexpr std::size_t kMaxHeadBytes = 64 * 1024;
// Of a header line; room for more isn't kept behind the reply.
constexpr std::size_t kUsualLine = 1024;
// Of what comes in at once, so that a sink which takes no more than its own buffer always takes it.
constexpr std::size_t kBlock = 4096;

struct Wiped {
  explicit Wiped(std::string&& secret) noexcept : text(std::move(secret)) {}
  ~Wiped() { SecureErase(text); }
  Wiped(const Wiped&) = delete;
  Wiped& operator=(const Wiped&) = delete;

  std::string text;
};

constexpr std::uint32_t kNoContent = 204;
constexpr std::uint32_t kNotModified = 304;

bool IsInformational(std::uint32_t status) noexcept { return status / 100 == 1; }

// RFC 9112, 6.3: whatever length the head tells.
bool HasNoBody(std::uint32_t status) noexcept {
  return IsInformational(status) || status == kNoContent || status == kNotModified;
}

std::span<const std::uint8_t> BytesOf(std::string_view text) noexcept {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

// What http_parser calls. What isn't 0 ends the reading, but for one answer at the head's end.
struct KeptConnection::Callbacks {
  static constexpr int kSkipBody = 1;

  static KeptConnection& Of(http_parser* parser) noexcept {
    return *static_cast<KeptConnection*>(parser->data);
  }

  static int OnBegin(http_parser* parser) noexcept { return Of(parser).GiveLine("HTTP/"); }

  static int OnField(http_parser* parser, const char* text, std::size_t size) noexcept {
    KeptConnection& connection = Of(parser);
    const int stopped = connection.lineHasValue_ ? connection.GiveLine(connection.line_) : 0;
    return stopped != 0 ? stopped : connection.Gather({text, size});
  }

  static int OnValue(http_parser* parser, const char* text, std::size_t size) noexcept {
    KeptConnection& connection = Of(parser);
    const int stopped = std::exchange(connection.lineHasValue_, true) ? 0 : connection.Gather(":");
    return stopped != 0 ? stopped : connection.Gather({text, size});
  }

  static int OnHeadEnd(http_parser* parser) noexcept {
    KeptConnection& connection = Of(parser);
    if (parser->http_major != 1) {
      return connection.StopFor(Trouble::Strange);
    }
    int stopped = connection.lineHasValue_ ? connection.GiveLine(connection.line_) : 0;
    stopped = stopped != 0 ? stopped : connection.GiveLine("\r\n");
    connection.inHead_ = IsInformational(parser->status_code);
    return stopped == 0 && HasNoBody(parser->status_code) ? kSkipBody : stopped;
  }

  static int OnBody(http_parser* parser, const char* text, std::size_t size) noexcept {
    const bool taken = Of(parser).sink_->OnBody({text, size}) == HttpSink::Answer::Taken;
    return taken ? 0 : Of(parser).StopFor(Trouble::Refused);
  }

  static int OnEnd(http_parser* parser) noexcept {
    if (!IsInformational(parser->status_code)) {
      Of(parser).complete_ = true;
      Of(parser).staysOpen_ = http_should_keep_alive(parser) != 0;
      http_parser_pause(parser, 1);
    }
    return 0;
  }

  static http_parser_settings All() noexcept {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_message_begin = &OnBegin;
    settings.on_header_field = &OnField;
    settings.on_header_value = &OnValue;
    settings.on_headers_complete = &OnHeadEnd;
    settings.on_body = &OnBody;
    settings.on_message_complete = &OnEnd;
    return settings;
  }
};

KeptConnection::KeptConnection(std::string_view agent) : agent_(agent) {}

KeptConnection::~KeptConnection() { SecureErase(request_); }

bool KeptConnection::Suits(const HttpUrl& url, const HttpRequestLine& request) noexcept {
  const std::string_view userName = request.userName;
  const std::string_view password = request.password;
  return request.method == "GET" && url.Address() &&
         url.Target().size() + userName.size() + password.size() <= kMaxText;
}

bool KeptConnection::Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) {
  if (request_.empty() || target_ != url.Target()) {
    MakeRequest(url, request, withCredentials);
  }
  peer_ = *url.Address();
  reused_ = std::exchange(complete_, false) && IsIdle();
  answered_ = letGo_ = lineHasValue_ = false;
  inHead_ = true;
  headBytes_ = 0;
  trouble_ = Trouble::None;
  line_.clear();
  http_parser_init(&parser_, HTTP_RESPONSE);
  parser_.data = this;
  if (!reused_) {
    socket_ = Socket::CreateTcp();
  }
  state_ = reused_ ? State::Sending : State::Connecting;
  return reused_ || (socket_.IsOpen() && socket_.SetNonBlocking(true));
}

// In a piece of memory that it fits into from the start, so that no copy of the credentials is left behind.
void KeptConnection::MakeRequest(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) {
  SecureErase(request_);
  target_ = url.Target();
  const std::string host = "\r\nHost: " + url.Authority() + "\r\n";
  const Wiped credentials{withCredentials ? BasicCredentials(request.userName, request.password) : ""};
  const std::string_view parts[] = {
      "GET ",         target_,          " HTTP/1.1",
      host,           credentials.text, withCredentials ? "\r\n" : "",
      "User-Agent: ", agent_,           "\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n\r\n"};
  const auto longer = [](std::size_t size, std::string_view part) { return size + part.size(); };
  request_.reserve(std::accumulate(std::begin(parts), std::end(parts), std::size_t{0}, longer));
  for (const std::string_view part : parts) {
    request_ += part;
  }
}

// A server that has closed the connection, or says something unasked, isn't asked over it.
bool KeptConnection::IsIdle() noexcept {
  std::uint8_t byte = 0;
  return socket_.IsOpen() && socket_.Receive({&byte, 1}).error == SocketError::TimedOut;
}

void KeptConnection::Rest() noexcept {
  sink_ = nullptr;
  if (!complete_) {
    socket_.Close();
  }
  if (line_.capacity() > kUsualLine) {
    std::string().swap(line_);
  }
}

std::optional<HttpError> KeptConnection::Run() noexcept {
  switch (state_) {
    case State::Connecting:
      return Connect();
    case State::Sending:
      return Transmit();
    case State::Receiving:
      break;
  }
  return Receive();
}

bool KeptConnection::Wait(Milliseconds timeout) noexcept {
  return state_ == State::Connecting ? socket_.WaitWritable(timeout) : socket_.WaitReadable(timeout);
}

std::optional<HttpError> KeptConnection::Connect() noexcept {
  switch (socket_.Connect(peer_)) {
    case SocketError::None:
      return Transmit();
    case SocketError::WouldBlock:
      return std::nullopt;
    case SocketError::TimedOut:
      return HttpError::TimedOut;
    default:
      return HttpError::CannotConnect;
  }
}

std::optional<HttpError> KeptConnection::Transmit() noexcept {
  state_ = State::Receiving;
  return socket_.Send(BytesOf(request_)).count == request_.size() ? std::nullopt : std::optional(Broken());
}

std::optional<HttpError> KeptConnection::Receive() noexcept {
  std::array<std::uint8_t, kBlock> block;
  const ReceiveResult received = socket_.Receive(block);
  if (received.error == SocketError::TimedOut) {
    return std::nullopt;
  }
  // The end of the connection is the end of a reply that has no length.
  if (received.error != SocketError::None || (received.count == 0 && !answered_)) {
    return Broken();
  }
  answered_ = true;
  headBytes_ += inHead_ ? received.count : 0;
  const std::optional<HttpError> outcome = Parse(std::span(block).first(received.count));
  return outcome || received.count > 0 ? outcome : Broken();
}

std::optional<HttpError> KeptConnection::Parse(std::span<const std::uint8_t> bytes) noexcept {
  static const http_parser_settings callbacks = Callbacks::All();
  const std::size_t parsed =
      http_parser_execute(&parser_, &callbacks, reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (complete_) {
    // Bytes behind the reply belong to nothing that was asked.
    if (bytes.empty() || parsed < bytes.size() || !staysOpen_) {
      socket_.Close();
    }
    return HttpError::None;
  }
  const http_errno error = HTTP_PARSER_ERRNO(&parser_);
  if (error == HPE_OK && parser_.upgrade == 0 && headBytes_ <= kMaxHeadBytes) {
    return std::nullopt;
  }
  if (error == HPE_INVALID_EOF_STATE) {
    return Broken();
  }
  socket_.Close();
  if (trouble_ == Trouble::None) {
    trouble_ = Trouble::Strange;
  }
  return trouble_ == Trouble::NoMemory ? HttpError::OutOfResources : HttpError::InvalidReply;
}

HttpError KeptConnection::Broken() noexcept {
  letGo_ = reused_ && !answered_;
  socket_.Close();
  return HttpError::ConnectionBroken;
}

int KeptConnection::GiveLine(std::string_view line) noexcept {
  const bool taken = sink_->OnHeaderLine(line);
  line_.clear();
  lineHasValue_ = false;
  return taken ? 0 : StopFor(Trouble::Refused);
}

int KeptConnection::Gather(std::string_view piece) noexcept {
  try {
    line_ += piece;
    return 0;
  } catch (const std::exception&) {
    return StopFor(Trouble::NoMemory);
  }
}

int KeptConnection::StopFor(Trouble trouble) noexcept {
  trouble_ = trouble;
  return -1;
}

}  // namespace sarnevo::platform::posix
