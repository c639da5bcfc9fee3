#include "http/HttpRequest.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <limits>
#include <mutex>
#include <numeric>
#include <utility>

#include "http/BasicCredentials.h"
#include "http/HttpStatus.h"
#include "platform/SecureErase.h"

namespace Web {

namespace {

using sarnevo::u16;
using sarnevo::u32;
using sarnevo::u8;
using sarnevo::platform::Milliseconds;
using sarnevo::platform::SecureErase;

constexpr const char* kAgent = "Sarnevo_HttpRequest";
constexpr int kMaxRedirects = 10;

thread_local HttpError lastError = HttpError::None;

const char* TextOrEmpty(const char* text) noexcept { return text != nullptr ? text : ""; }

struct Wiped {
  explicit Wiped(std::string&& secret) noexcept : text(std::move(secret)) {}
  ~Wiped() { SecureErase(text); }
  Wiped(const Wiped&) = delete;
  Wiped& operator=(const Wiped&) = delete;

  std::string text;
};

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
  Forget();
}

bool HttpRequest::SetHost(const char* host) {
  host_ = TextOrEmpty(host);
  return true;
}

bool HttpRequest::SetUserName(const char* userName) {
  userName_ = TextOrEmpty(userName);
  Forget();
  return true;
}

bool HttpRequest::SetPassword(const char* password) {
  // Filled aside and swapped in, so that no growing leaves the old characters behind.
  std::string changed = TextOrEmpty(password);
  password_.swap(changed);
  SecureErase(changed);
  Forget();
  return true;
}

template <typename Step>
bool HttpRequest::Run(bool opens, Step step) noexcept {
  {
    const std::lock_guard guard(lock_);
    inUse_ = true;
    if (opens && !aborted_) {
      connection_.Open();
    }
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
    connection_.Close();
  }
  return lastError == HttpError::None;
}

bool HttpRequest::Send(const char* method, const char* path, bool disableQueryEscape) {
  const bool sent = Run(true, [&] {
    const bool hasMethod = method != nullptr && *method != '\0';
    const HttpError error = Follow(hasMethod ? method : "GET", TextOrEmpty(path), !disableQueryEscape);
    if (!keepConnection_) {
      Forget();
    }
    return error == HttpError::None ? error : connection_.Fail(error);
  });
  if (!sent) {
    return false;
  }
  const HttpReply& reply = connection_.Reply();
  statusCode_ = reply.Status();
  if (const auto length = reply.ContentLength(); length && *length <= std::numeric_limits<u32>::max()) {
    contentLength_ = static_cast<u32>(*length);
  }
  if (statusCode_ == kStatusUnauthorized) {
    lastError = HttpError::LoginFailure;
  }
  return true;
}

u32 HttpRequest::GetDataAvailable() {
  const bool ready = Run(false, [this] { return connection_.AwaitBody(); });
  const std::size_t count = ready ? connection_.Reply().Body().size() : 0;
  return static_cast<u32>(std::min<std::size_t>(count, std::numeric_limits<u32>::max()));
}

bool HttpRequest::Read(void* buffer, u32 size, u32* bytesRead) {
  std::size_t count = 0;
  const bool read = Run(false, [&] {
    if (buffer == nullptr) {
      return HttpError::InvalidRequest;
    }
    // Nothing is waited for where nothing is wanted.
    const HttpError error = size == 0 && !connection_.IsCancelled() ? HttpError::None : connection_.AwaitBody();
    if (error == HttpError::None) {
      const std::span<const u8> ready = connection_.Reply().Body();
      count = std::min<std::size_t>(size, ready.size());
      std::copy_n(ready.begin(), count, static_cast<u8*>(buffer));
      connection_.Consume(count);
    }
    return error;
  });
  if (bytesRead != nullptr) {
    *bytesRead = static_cast<u32>(count);
  }
  return read;
}

void HttpRequest::KeepConnection(bool keep) {
  keepConnection_ = keep;
  Forget();
  if (!keep) {
    const std::lock_guard guard(lock_);
    connection_.LetGo();
  }
}

void HttpRequest::Cancel() noexcept {
  const std::lock_guard guard(lock_);
  connection_.Cancel();
  if (!inUse_) {
    connection_.Close();
  }
}

void HttpRequest::Abort() noexcept {
  const std::lock_guard guard(lock_);
  aborted_ = true;
  Cancel();
}

void HttpRequest::Resume() noexcept {
  const std::lock_guard guard(lock_);
  aborted_ = false;
}

// Sends the request, and sends it again where the reply leads, until a reply stays. A redirect's own body isn't
// waited for; it may have no end.
HttpError HttpRequest::Follow(std::string_view method, std::string_view path, bool escapes) {
  if (!server_ && IsHttpHost(host_)) {
    server_ = HttpServer{host_, port_ != 0 ? port_ : kHttpPort};
  }
  if (!server_ || !IsToken(method)) {
    return HttpError::InvalidRequest;
  }
  HttpError error = connection_.Begin(Milliseconds{timeLimit_}, keepConnection_);
  if (error != HttpError::None) {
    return error;
  }
  Prepare(method, path, escapes);
  error = connection_.Ask(*server_, method, prepared_.text);
  HttpServer server = *server_;
  std::string target = prepared_.target;
  for (int redirects = 0; error == HttpError::None; ++redirects) {
    const std::string_view location = connection_.Reply().Redirect();
    if (location.empty()) {
      break;
    }
    const auto next = redirects < kMaxRedirects ? Resolve(server, target, location) : std::nullopt;
    if (!next) {
      return HttpError::RedirectRefused;
    }
    server.port = next->port;
    target = next->target;
    const Wiped text(TextOf(method, target, server.port));
    error = connection_.Ask(server, method, text.text);
  }
  return error;
}

void HttpRequest::Prepare(std::string_view method, std::string_view path, bool escapes) {
  if (!prepared_.text.empty() && prepared_.method == method && prepared_.path == path &&
      prepared_.escapes == escapes) {
    return;
  }
  Forget();
  prepared_.method = method;
  prepared_.path = path;
  prepared_.escapes = escapes;
  prepared_.target = RequestTarget(path, escapes);
  prepared_.text = TextOf(method, prepared_.target, server_->port);
}

// In a piece of memory that it fits into from the start, so that no copy of the credentials is left behind. They go
// to the first port alone. Without "Connection" a server keeps the connection (RFC 9112, 9.3); the cameras have few
// places, and one that idled would take one of them.
std::string HttpRequest::TextOf(std::string_view method, std::string_view target, std::uint16_t port) const {
  const Wiped credentials{port == server_->port ? BasicCredentials(userName_, password_) : ""};
  const std::string host = port == kHttpPort ? server_->host : server_->host + ":" + std::to_string(port);
  const std::string_view parts[] = {method,
                                    " ",
                                    target,
                                    " HTTP/1.1\r\nHost: ",
                                    host,
                                    "\r\n",
                                    credentials.text,
                                    credentials.text.empty() ? "" : "\r\n",
                                    "User-Agent: ",
                                    kAgent,
                                    keepConnection_ ? "" : "\r\nConnection: close",
                                    "\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n\r\n"};
  const auto longer = [](std::size_t size, std::string_view part) { return size + part.size(); };
  std::string text;
  text.reserve(std::accumulate(std::begin(parts), std::end(parts), std::size_t{0}, longer));
  for (const std::string_view part : parts) {
    text += part;
  }
  return text;
}

void HttpRequest::Forget() noexcept { SecureErase(prepared_.text); }

}  // namespace Web
