#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/HttpTransport.h"

namespace sarnevo::platform::posix {

/// An absolute http URL (RFC 3986, RFC 9110, 4.2.1) that a request goes to.
class HttpUrl {
 public:
  /// Nothing when the host can't stand in a URL. @p target as RequestTarget makes it.
  static std::optional<HttpUrl> Make(const HttpServer& server, const std::string& target);

  /// Where a Location header (RFC 9110, 10.2.2) of a reply from this URL leads, absolute or relative.
  /// Nothing when that isn't plain http, carries credentials, can't be read, or names another host: a camera
  /// may move its pages, but not make this process connect to whom it likes.
  std::optional<HttpUrl> Resolve(const std::string& location) const;

  /// The same host and port.
  bool IsSameServer(const HttpUrl& other) const;
  /// The host is an IPv4 address, so that no name has to be looked up.
  bool HasNumericHost() const;

  const std::string& Text() const noexcept { return text_; }

 private:
  HttpUrl() = default;
  static std::optional<HttpUrl> FromHandle(CURLU* url);

  std::string text_;
  std::string host_;  // lower case
  std::string port_;  // decimal
};

}  // namespace sarnevo::platform::posix
