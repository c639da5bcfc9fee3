#include "http/HttpRequest.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>
#include <span>
#include <utility>

#include "platform/SecureErase.h"

namespace Web {

namespace {

using sarnevo::u16;
using sarnevo::u32;
using sarnevo::u8;
using sarnevo::platform::HttpError;
using sarnevo::platform::HttpExchange;
using sarnevo::platform::HttpServer;
using sarnevo::platform::Milliseconds;

constexpr const char* kAgent = "Sarnevo_HttpRequest";
constexpr u32 kUnauthorized = 401;

thread_local HttpError lastError = HttpError::None;

bool Ended(HttpError error) noexcept {
  lastError = error;
  return error == HttpError::None;
}

const char* TextOrEmpty(const char* text) noexcept { return text != nullptr ? text : ""; }

u32 Clamped(std::size_t count) noexcept {
  return static_cast<u32>(std::min<std::size_t>(count, std::numeric_limits<u32>::max()));
}

}  // namespace

HttpError LastHttpError() noexcept { return lastError; }

HttpRequest::HttpRequest(u32 timeout, u32 maxConnections, u32 codePage)
    : session_{kAgent, Milliseconds{timeout}, maxConnections, codePage} {}

HttpRequest::HttpRequest(const char* host, u16 port, const char* userName, const char* password, u32 timeout,
                         u32 maxConnections, u32 codePage)
    : HttpRequest(timeout, maxConnections, codePage) {
  SetHost(host);
  SetPort(port);
  SetUserName(userName);
  SetPassword(password);
}

HttpRequest::~HttpRequest() {
  sarnevo::platform::SecureErase(userName_);
  sarnevo::platform::SecureErase(password_);
  TakeRequest();
}

bool HttpRequest::SetHost(const char* host) {
  host_ = TextOrEmpty(host);
  return true;
}

bool HttpRequest::SetPort(u16 port) {
  port_ = port;
  return true;
}

bool HttpRequest::SetUserName(const char* userName) {
  userName_ = TextOrEmpty(userName);
  keeper_.Drop();
  return true;
}

bool HttpRequest::SetPassword(const char* password) {
  // Filled aside and swapped in, so that no growing leaves the old characters behind.
  std::string changed = TextOrEmpty(password);
  password_.swap(changed);
  sarnevo::platform::SecureErase(changed);
  keeper_.Drop();
  return true;
}

const char* HttpRequest::GetHost() const { return host_.c_str(); }

u16 HttpRequest::GetPort() const { return port_; }

bool HttpRequest::Send(const char* method, const char* path, bool disableQueryEscape) {
  try {
    if (!connection_) {
      if (!sarnevo::platform::IsHttpHost(host_)) {
        return Ended(HttpError::InvalidRequest);
      }
      connection_ = HttpServer{host_, port_};
    }
    const std::shared_ptr<HttpExchange> request = OpenRequest();
    if (!request) {
      return Ended(HttpError::Cancelled);
    }
    request->LimitTo(Milliseconds{timeLimit_});
    const bool hasMethod = method != nullptr && *method != '\0';
    if (!Ended(request->Send({hasMethod ? method : "GET", TextOrEmpty(path), !disableQueryEscape,
                              userName_.c_str(), password_.c_str()}))) {
      return false;
    }
    statusCode_ = request->StatusCode();
    const std::optional<std::uint64_t> length = request->ContentLength();
    if (length && *length <= std::numeric_limits<u32>::max()) {
      contentLength_ = static_cast<u32>(*length);
    }
    if (statusCode_ == kUnauthorized) {
      lastError = HttpError::LoginFailure;
    }
    return true;
  } catch (const std::bad_alloc&) {
    return Ended(HttpError::OutOfResources);
  }
}

u32 HttpRequest::GetStatusCode() const { return statusCode_; }

u32 HttpRequest::GetDataAvailable() {
  const std::shared_ptr<HttpExchange> request = CurrentRequest();
  std::size_t count = 0;
  if (!Ended(request ? request->DataAvailable(count) : HttpError::Cancelled)) {
    return 0;
  }
  return Clamped(count);
}

bool HttpRequest::Read(void* buffer, u32 size, u32* bytesRead) {
  std::size_t count = 0;
  if (bytesRead != nullptr) {
    *bytesRead = 0;
  }
  if (buffer == nullptr) {
    return Ended(HttpError::InvalidRequest);
  }
  const std::shared_ptr<HttpExchange> request = CurrentRequest();
  if (!Ended(request ? request->Read(std::span(static_cast<u8*>(buffer), size), count)
                     : HttpError::Cancelled)) {
    return false;
  }
  if (bytesRead != nullptr) {
    *bytesRead = static_cast<u32>(count);
  }
  return true;
}

void HttpRequest::SetTimeLimit(u32 milliseconds) { timeLimit_ = milliseconds; }

void HttpRequest::KeepConnection(bool keep) {
  keepConnection_ = keep;
  if (!keep) {
    keeper_.Drop();
  }
}

void HttpRequest::Cancel() noexcept {
  // The owner may be in the middle of it. If not, it ends here, and its connection with it.
  if (const std::shared_ptr<HttpExchange> request = TakeRequest()) {
    request->Close();
  }
  keeper_.Drop();
}

void HttpRequest::Abort() noexcept {
  {
    const std::lock_guard guard(lock_);
    aborted_ = true;
  }
  Cancel();
}

void HttpRequest::Resume() noexcept {
  const std::lock_guard guard(lock_);
  aborted_ = false;
}

std::shared_ptr<HttpExchange> HttpRequest::OpenRequest() {
  auto request = std::make_shared<HttpExchange>(session_, *connection_, keepConnection_ ? &keeper_ : nullptr);
  std::shared_ptr<HttpExchange> before;  // ends outside of the lock
  const std::lock_guard guard(lock_);
  before = std::move(request_);
  request_ = aborted_ ? nullptr : std::move(request);
  return request_;
}

std::shared_ptr<HttpExchange> HttpRequest::CurrentRequest() noexcept {
  const std::lock_guard guard(lock_);
  return request_;
}

std::shared_ptr<HttpExchange> HttpRequest::TakeRequest() noexcept {
  const std::lock_guard guard(lock_);
  return std::move(request_);
}

}  // namespace Web
