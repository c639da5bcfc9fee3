#include "simcam/net/HttpService.h"

#include <http_parser.h>

#include <utility>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr std::size_t kMaxTarget = 65'536;  // bytes; a longer one is refused

const char* ReasonOf(unsigned status) {
  const char* const known = http_status_str(static_cast<http_status>(status));
  return known[0] == '<' ? "Status" : known;
}

}  // namespace

struct HttpCallbacks {
  static HttpService& Of(http_parser* parser) { return *static_cast<HttpService*>(parser->data); }

  static int Begin(http_parser* parser) {
    Of(parser).request_ = {};
    Of(parser).headerName_.clear();
    Of(parser).headerValue_.clear();
    return 0;
  }
  static int Url(http_parser* parser, const char* at, std::size_t length) {
    std::string& target = Of(parser).request_.target;
    target.append(at, length);
    return target.size() > kMaxTarget ? 1 : 0;
  }
  static int Field(http_parser* parser, const char* at, std::size_t length) {
    HttpService& self = Of(parser);
    if (std::exchange(self.valueBegun_, false)) {
      EndHeader(self);
    }
    self.headerName_.append(at, length);
    return 0;
  }
  static int Value(http_parser* parser, const char* at, std::size_t length) {
    Of(parser).valueBegun_ = true;
    Of(parser).headerValue_.append(at, length);
    return 0;
  }
  static int Complete(http_parser* parser) {
    HttpService& self = Of(parser);
    if (std::exchange(self.valueBegun_, false)) {
      EndHeader(self);
    }
    self.request_.method = http_method_str(static_cast<http_method>(parser->method));
    self.Answer(http_should_keep_alive(parser) != 0);
    return 0;
  }
  static void EndHeader(HttpService& self) {
    if (ToUpper(self.headerName_) == "AUTHORIZATION") {
      self.request_.authorization = self.headerValue_;
    }
    self.headerName_.clear();
    self.headerValue_.clear();
  }
  static http_parser_settings Settings() {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_message_begin = Begin;
    settings.on_url = Url;
    settings.on_header_field = Field;
    settings.on_header_value = Value;
    settings.on_message_complete = Complete;
    return settings;
  }
};

HttpService::HttpService(Connection& connection, HttpAnswer answer)
    : connection_(connection), answer_(std::move(answer)), parser_(std::make_unique<http_parser>()) {
  http_parser_init(parser_.get(), HTTP_REQUEST);
  parser_->data = this;
}

HttpService::~HttpService() = default;

void HttpService::OnBytes(std::string_view bytes) {
  static const http_parser_settings settings = HttpCallbacks::Settings();
  http_parser_execute(parser_.get(), &settings, bytes.data(), bytes.size());
  if (HTTP_PARSER_ERRNO(parser_.get()) != HPE_OK) {
    connection_.Reply("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n",
                      std::nullopt, true);
  }
}

void HttpService::Answer(bool keepAlive) {
  HttpReply reply = answer_(request_);
  if (reply.fault) {
    reply.fault->Lengthen(reply.body);
  }
  const bool endless = reply.fault && reply.fault->kind == ReplyFault::Kind::Endless;
  std::string text = Format("HTTP/1.1 %u %s\r\nServer: Kolvex\r\n", reply.status, ReasonOf(reply.status));
  if (reply.status == 401) {
    text += "WWW-Authenticate: Basic realm=\"Kolvex\"\r\n";
  }
  text += Format("Content-Type: %s\r\n", reply.type.c_str());
  if (!endless && reply.status != 204) {
    text += Format("Content-Length: %zu\r\n", reply.body.size());
  }
  text += Format("Connection: %s\r\n\r\n", keepAlive && !endless ? "keep-alive" : "close");
  if (reply.status != 204) {
    text += reply.body;
  }
  connection_.Reply(std::move(text), reply.fault, !keepAlive);
}

}  // namespace simcam
