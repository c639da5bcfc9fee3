#include "platform/posix/HttpUrl.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "platform/SocketAddress.h"

namespace sarnevo::platform::posix {

namespace {

constexpr std::uint16_t kHttpPort = 80;

struct UrlDeleter {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlDeleter>;

UrlHandle Parse(const std::string& text) {
  UrlHandle url(curl_url());
  if (!url) {
    throw std::bad_alloc();
  }
  // CURLU_PATH_AS_IS: a camera is asked for exactly the path that the caller gave, dots included.
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_PATH_AS_IS | CURLU_DISALLOW_USER) !=
      CURLUE_OK) {
    url.reset();
  }
  return url;
}

std::string Part(CURLU* url, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) {
    return {};
  }
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return text;
}

}  // namespace

std::optional<HttpUrl> HttpUrl::Make(const HttpServer& server, const std::string& target) {
  if (!IsHttpHost(server.host)) {
    return std::nullopt;
  }
  const std::uint16_t port = server.port != 0 ? server.port : kHttpPort;
  const UrlHandle url = Parse("http://" + server.host + ":" + std::to_string(port) + target);
  return url ? FromHandle(url.get()) : std::nullopt;
}

std::optional<HttpUrl> HttpUrl::Resolve(const std::string& location) const {
  const UrlHandle url = Parse(text_);
  // Servers write blanks and raw bytes in Location; they are escaped as browsers do.
  constexpr unsigned kFlags = CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_PATH_AS_IS | CURLU_DISALLOW_USER;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, location.c_str(), kFlags) != CURLUE_OK) {
    return std::nullopt;
  }
  if (Part(url.get(), CURLUPART_SCHEME) != "http") {
    return std::nullopt;
  }
  std::optional<HttpUrl> next = FromHandle(url.get());
  return next && next->host_ == host_ ? next : std::nullopt;
}

std::optional<HttpUrl> HttpUrl::FromHandle(CURLU* handle) {
  // A fragment (RFC 3986, 3.5) is no business of the server's.
  curl_url_set(handle, CURLUPART_FRAGMENT, nullptr, 0);
  HttpUrl url;
  url.text_ = Part(handle, CURLUPART_URL);
  url.host_ = Part(handle, CURLUPART_HOST);
  url.port_ = Part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  std::transform(url.host_.begin(), url.host_.end(), url.host_.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  if (url.text_.empty() || url.host_.empty()) {
    return std::nullopt;
  }
  return url;
}

bool HttpUrl::IsSameServer(const HttpUrl& other) const { return host_ == other.host_ && port_ == other.port_; }

bool HttpUrl::HasNumericHost() const { return SocketAddress::Parse(host_.c_str(), 0).has_value(); }

}  // namespace sarnevo::platform::posix
