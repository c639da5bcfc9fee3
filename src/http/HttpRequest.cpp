#include "http/HttpRequest.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>
#include <utility>

#include "http/HttpStatus.h"
#include "platform/SecureErase.h"

namespace Web {

namespace {

using sarnevo::u16;
using sarnevo::u32;
using sarnevo::u8;
using sarnevo::platform::Milliseconds;
using sarnevo::platform::SecureErase;

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

thread_local HttpError lastError = HttpError::None;

const char* TextOrEmpty(const char* text) noexcept { return text != nullptr ? text : ""; }

// RFC 4648, 4: three bytes are four digits of six bits; a "=" stands for each byte that the last group lacks.
void AppendBase64(std::string_view bytes, std::string& text) {
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::string_view group = bytes.substr(i, 3);
    u32 bits = 0;
    for (std::size_t place = 0; place < 3; ++place) {
      bits = bits << 8 | (place < group.size() ? static_cast<u8>(group[place]) : 0U);
    }
    for (std::size_t place = 0; place < 4; ++place) {
      text += place <= group.size() ? kBase64Digits[bits >> (18 - 6 * place) & 0x3F] : '=';
    }
  }
}

}  // namespace

HttpError LastHttpError() noexcept { return lastError; }

HttpRequest::HttpRequest(u32 timeout, u32 maxConnections, u32 codePage)
    : connection_(Milliseconds{timeout}), maxConnections_(maxConnections), codePage_(codePage) {}

HttpRequest::HttpRequest(const char* host, u16 port, const char* userName, const char* password, u32 timeout,
                         u32 maxConnections, u32 codePage)
    : HttpRequest(timeout, maxConnections, codePage) {
  SetHost(host);
  SetPort(port);
  SetUserName(userName);
  SetPassword(password);
}

HttpRequest::~HttpRequest() {
  SecureErase(userName_);
  SecureErase(password_);
}

bool HttpRequest::SetHost(const char* host) {
  host_ = TextOrEmpty(host);
  return true;
}

bool HttpRequest::SetUserName(const char* userName) {
  userName_ = TextOrEmpty(userName);
  return true;
}

bool HttpRequest::SetPassword(const char* password) {
  SecureErase(password_);
  password_ = TextOrEmpty(password);
  return true;
}

template <typename Step>
bool HttpRequest::Run(Step step) noexcept {
  {
    const std::lock_guard guard(lock_);
    inUse_ = true;
  }
  try {
    lastError = step();
  } catch (const std::exception&) {
    lastError = connection_.Fail(HttpError::OutOfResources);
  }
  // Whoever cancelled meanwhile has left the connection for this thread to close.
  const std::lock_guard guard(lock_);
  inUse_ = false;
  if (connection_.IsCancelled()) {
    lastError = connection_.Fail(HttpError::Cancelled);
  }
  return lastError == HttpError::None;
}

bool HttpRequest::Send(const char* method, const char* path, bool disableQueryEscape) {
  const bool sent = Run([&] {
    const bool hasMethod = method != nullptr && *method != '\0';
    const HttpError error = Follow(hasMethod ? method : "GET", TextOrEmpty(path), !disableQueryEscape);
    return error == HttpError::None ? error : connection_.Fail(error);
  });
  SecureErase(text_);
  if (sent && statusCode_ == kStatusUnauthorized) {
    lastError = HttpError::LoginFailure;
  }
  return sent;
}

u32 HttpRequest::GetDataAvailable() {
  std::size_t count = 0;
  const bool ready = Run([&] {
    const HttpError error = connection_.AwaitBody();
    count = connection_.Reply().Body().size();
    return error;
  });
  return ready ? static_cast<u32>(count) : 0;
}

bool HttpRequest::Read(void* buffer, u32 size, u32* bytesRead) {
  std::size_t count = 0;
  const bool read = Run([&] {
    if (buffer == nullptr) {
      return HttpError::InvalidRequest;
    }
    // Nothing is waited for where nothing is wanted.
    const HttpError error = size > 0 ? connection_.AwaitBody() : HttpError::None;
    const std::span<const u8> ready = connection_.Reply().Body();
    count = std::min<std::size_t>(size, ready.size());
    std::copy_n(ready.begin(), count, static_cast<u8*>(buffer));
    connection_.Reply().Consume(count);
    return error;
  });
  if (bytesRead != nullptr) {
    *bytesRead = read ? static_cast<u32>(count) : 0;
  }
  return read;
}

void HttpRequest::Cancel() noexcept {
  const std::lock_guard guard(lock_);
  connection_.Cancel();
  if (!inUse_) {
    connection_.Fail(HttpError::Cancelled);
  }
}

// Sends the request, and sends it again where the reply leads, until a reply stays. A redirect's own body isn't
// waited for; it may have no end.
HttpError HttpRequest::Follow(std::string_view method, std::string_view path, bool escapes) {
  if (!server_ && IsHttpHost(host_)) {
    server_ = HttpTarget{host_, port_ != 0 ? port_ : kHttpPort, {}};
  }
  if (!server_ || !IsToken(method)) {
    return HttpError::InvalidRequest;
  }
  HttpTarget target{server_->host, server_->port, RequestTarget(path, escapes)};
  connection_.Begin(Milliseconds{timeLimit_});
  for (int redirects = 0;; ++redirects) {
    Write(method, target);
    if (const HttpError error = connection_.Ask(target, method, text_); error != HttpError::None) {
      return error;
    }
    const std::string_view location = connection_.Reply().Redirect();
    if (location.empty()) {
      NoteHead();
      return HttpError::None;
    }
    auto next = redirects < kMaxRedirects ? TargetOfRedirect(target, location) : std::nullopt;
    if (!next) {
      return HttpError::RedirectRefused;
    }
    target = std::move(*next);
  }
}

void HttpRequest::NoteHead() {
  statusCode_ = connection_.Reply().Status();
  const auto length = connection_.Reply().ContentLength();
  if (length && *length <= std::numeric_limits<u32>::max()) {
    contentLength_ = static_cast<u32>(*length);
  }
}

// In pieces of memory that fit from the start, so that no copy of the credentials is left behind. They go to the first
// port alone. Without "Connection" a server keeps the connection (RFC 9112, 9.3); the cameras have few places, and one
// that idled would take one of them.
void HttpRequest::Write(std::string_view method, const HttpTarget& target) {
  constexpr std::size_t kFixedParts = 256;  // more than all that is the same in each request
  const std::size_t credentials = userName_.size() + password_.size();
  SecureErase(text_);
  text_.reserve(method.size() + target.path.size() + target.host.size() + 2 * credentials + kFixedParts);
  text_.append(method).append(" ").append(target.path).append(" HTTP/1.1\r\nHost: ").append(target.host);
  if (target.port != kHttpPort) {
    text_.append(":").append(std::to_string(target.port));
  }
  if (target.port == server_->port) {
    std::string pair;  // RFC 7617
    pair.reserve(credentials + 1);
    pair.append(userName_).append(":").append(password_);
    text_ += "\r\nAuthorization: Basic ";
    AppendBase64(pair, text_);
    SecureErase(pair);
  }
  text_ += "\r\nUser-Agent: Sarnevo_HttpRequest";
  text_ += connection_.Keeps() ? "" : "\r\nConnection: close";
  text_ += "\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n\r\n";
}

}  // namespace Web
