#include "platform/posix/HttpUrl.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <new>
#include <utility>

namespace sarnevo::platform::posix {

namespace {

constexpr std::uint16_t kHttpPort = 80;

std::shared_ptr<CURLU> Owned(CURLU* url) {
  if (url == nullptr) {
    throw std::bad_alloc();
  }
  return {url, &curl_url_cleanup};
}

// Want of memory is no part that is missing: an URL without its port would stay wrong for as long as it is kept.
bool Done(CURLUcode code) {
  if (code == CURLUE_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
  return code == CURLUE_OK;
}

std::string Part(CURLU* url, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (!Done(curl_url_get(url, part, &text, flags))) {
    return {};
  }
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return text;
}

std::uint16_t Number(const std::string& port) {
  std::uint16_t value = 0;
  std::from_chars(port.data(), port.data() + port.size(), value);
  return value;
}

}  // namespace

std::optional<HttpUrl> HttpUrl::Make(const HttpServer& server, const std::string& target) {
  if (!IsHttpHost(server.host)) {
    return std::nullopt;
  }
  const std::uint16_t port = server.port != 0 ? server.port : kHttpPort;
  const std::string text = "http://" + server.host + ":" + std::to_string(port);
  auto url = Owned(curl_url());
  if (!Done(curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0))) {
    return std::nullopt;
  }
  return FromParts(std::move(url), target);
}

std::optional<HttpUrl> HttpUrl::Resolve(const std::string& location) const {
  auto url = Owned(curl_url_dup(server_.get()));
  const std::string path = target_.substr(0, target_.find('?'));
  // CURLU_PATH_AS_IS: a camera is asked for exactly the path that it gave, dots included. Servers write blanks
  // and raw bytes in Location; they are escaped as browsers do.
  constexpr unsigned kFlags = CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_PATH_AS_IS | CURLU_DISALLOW_USER;
  if (!Done(curl_url_set(url.get(), CURLUPART_PATH, path.c_str(), 0)) ||
      !Done(curl_url_set(url.get(), CURLUPART_URL, location.c_str(), kFlags)) ||
      Part(url.get(), CURLUPART_SCHEME) != "http") {
    return std::nullopt;
  }
  std::string target = Part(url.get(), CURLUPART_PATH);
  if (const std::string query = Part(url.get(), CURLUPART_QUERY); !query.empty()) {
    target += "?" + query;
  }
  // A fragment (RFC 3986, 3.5) is no business of the server's.
  for (const CURLUPart part : {CURLUPART_PATH, CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
    curl_url_set(url.get(), part, nullptr, 0);
  }
  std::optional<HttpUrl> next = FromParts(std::move(url), std::move(target));
  return next && next->host_ == host_ ? next : std::nullopt;
}

std::optional<HttpUrl> HttpUrl::FromParts(std::shared_ptr<CURLU> server, std::string target) {
  HttpUrl url;
  url.host_ = Part(server.get(), CURLUPART_HOST);
  url.port_ = Part(server.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
  std::transform(url.host_.begin(), url.host_.end(), url.host_.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  if (url.host_.empty() || url.port_.empty()) {
    return std::nullopt;
  }
  url.address_ = SocketAddress::Parse(url.host_.c_str(), Number(url.port_));
  url.server_ = std::move(server);
  url.target_ = std::move(target);
  return url;
}

std::string HttpUrl::Authority() const { return Number(port_) == kHttpPort ? host_ : host_ + ":" + port_; }

bool HttpUrl::IsSameServer(const HttpUrl& other) const { return host_ == other.host_ && port_ == other.port_; }

}  // namespace sarnevo::platform::posix
