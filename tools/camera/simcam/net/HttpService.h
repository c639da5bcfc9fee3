#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "simcam/net/Connection.h"

struct http_parser;

namespace simcam {

struct HttpRequest {
  std::string method;
  std::string target;         ///< path and query as they came
  std::string authorization;  ///< value of that header, empty without it
};

struct HttpReply {
  unsigned status = 200;
  std::string type = "text/plain";
  std::string body;
  std::optional<ReplyFault> fault;
};

using HttpAnswer = std::function<HttpReply(const HttpRequest&)>;

/// Speaks HTTP/1.1 (RFC 9112) on a connection and asks `answer` for each reply. Connections are kept open as
/// the client wishes.
class HttpService : public ConnectionHandler {
 public:
  HttpService(Connection& connection, HttpAnswer answer);
  ~HttpService() override;

  void OnBytes(std::string_view bytes) override;

 private:
  void Answer(bool keepAlive);

  Connection& connection_;
  const HttpAnswer answer_;
  std::unique_ptr<http_parser> parser_;
  HttpRequest request_;  // as far as it has come
  std::string headerName_, headerValue_;
  bool valueBegun_ = false;

  friend struct HttpCallbacks;
};

}  // namespace simcam
