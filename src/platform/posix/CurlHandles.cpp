#include "platform/posix/CurlHandles.h"

#include <sys/socket.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/SecureErase.h"
#include "platform/posix/BasicCredentials.h"

namespace sarnevo::platform::posix {

namespace {

// Of what comes in over a kept connection at once. The polled replies are short; the buffer is got anew for
// each of them, and one of this size is got without a look at the heap.
constexpr long kKeptBufferBytes = 1024;

// Sets a handle's options one by one and remembers whether all were taken.
class CurlOptions {
 public:
  explicit CurlOptions(CURL* easy) noexcept : easy_(easy) {}

  template <typename Value>
  void Set(CURLoption option, Value value) noexcept {
    good_ = good_ && curl_easy_setopt(easy_, option, value) == CURLE_OK;
  }
  bool Good() const noexcept { return good_; }

 private:
  CURL* const easy_;
  bool good_ = true;
};

// libcurl's own state of the process. It counts its users, so that a host that uses it too isn't disturbed;
// everything is initialised, since a host that comes later would find it done and miss what was left out.
bool StartLibrary() noexcept {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

// The host's children inherit no connection.
curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

std::unique_ptr<CurlHandles> CurlHandles::Make(const HttpSettings& settings, bool keep) {
  std::unique_ptr<CurlHandles> handles(new CurlHandles(keep));
  const bool good = StartLibrary() && handles->PrepareHeaders(settings) && handles->PrepareHandles() &&
                    handles->PrepareOptions(settings);
  return good ? std::move(handles) : nullptr;
}

CurlHandles::~CurlHandles() {
  if (multi_ && easy_) {
    Detach();
  }
  SecureErase(credentials_);
}

// libcurl (7.88, for one) keeps a pointer to the last header of the transfer before, whose memory it has freed. A
// reply that begins with a continuation line (RFC 9112, 5.2) is then joined to that, so that a camera could write
// into the host's heap. No handle that has seen a reply sees another; the connections belong to the multi handle.
bool CurlHandles::Renew() noexcept {
  if (std::exchange(fresh_, false)) {
    return true;
  }
  CURL* const next = curl_easy_duphandle(easy_.get());
  if (next != nullptr) {
    easy_.reset(next);
  }
  return next != nullptr;
}

bool CurlHandles::SetMethod(std::string_view method) {
  if (method_ == method) {
    return true;
  }
  method_.reset();
  CurlOptions options(easy_.get());
  options.Set(CURLOPT_HTTPGET, 1L);  // whatever came before
  options.Set(CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
  if (method == "HEAD") {
    options.Set(CURLOPT_NOBODY, 1L);
  } else if (method != "GET") {
    options.Set(CURLOPT_CUSTOMREQUEST, std::string(method).c_str());
  }
  if (options.Good()) {
    method_ = method;
  }
  return options.Good();
}

bool CurlHandles::SetTarget(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) {
  CurlOptions options(easy_.get());
  if (!url_ || url_->Server() != url.Server() || url_->Target() != url.Target()) {
    options.Set(CURLOPT_CURLU, url.Server());
    options.Set(CURLOPT_REQUEST_TARGET, url.Target().c_str());
    url_ = url;
  }
  return options.Good() && (withCredentials_ == withCredentials || SetCredentials(request, withCredentials));
}

bool CurlHandles::SetCredentials(const HttpRequestLine& request, bool withCredentials) {
  withCredentials_.reset();
  SecureErase(credentials_);
  if (withCredentials) {
    credentials_ = BasicCredentials(request.userName, request.password);
    credentialsHeader_ = {credentials_.data(), headers_.get()};
  }
  CurlOptions options(easy_.get());
  options.Set(CURLOPT_HTTPHEADER, withCredentials ? &credentialsHeader_ : headers_.get());
  if (options.Good()) {
    withCredentials_ = withCredentials;
  }
  return options.Good();
}

std::size_t CurlHandles::OnHeader(const char* data, std::size_t size, std::size_t count,
                                  void* handles) noexcept {
  HttpSink* const sink = static_cast<CurlHandles*>(handles)->sink_;
  return sink->OnHeaderLine({data, size * count}) ? size * count : 0;
}

std::size_t CurlHandles::OnBody(const char* data, std::size_t size, std::size_t count, void* handles) noexcept {
  switch (static_cast<CurlHandles*>(handles)->sink_->OnBody({data, size * count})) {
    case HttpSink::Answer::Taken:
      return size * count;
    case HttpSink::Answer::Later:
      return CURL_WRITEFUNC_PAUSE;
    case HttpSink::Answer::Refused:
      break;
  }
  return 0;
}

// The agent's name and the credentials, too, which libcurl has options for: it would print those anew for each
// request, byte by byte and twice over, which is most of what a request over a kept connection costs.
bool CurlHandles::PrepareHeaders(const HttpSettings& settings) {
  // Connection (RFC 9110, 7.6.1): the cameras' servers have few places, and a connection that idled between
  // two requests would keep one of them. Without the line HTTP/1.1 keeps it (RFC 9112, 9.3). "Accept:" takes
  // out what libcurl would send by itself.
  const std::string agent = "User-Agent: " + settings.agent;
  for (const char* const line : {agent.c_str(), keep_ ? nullptr : "Connection: close",
                                 "Cache-Control: no-cache", "Pragma: no-cache", "Accept:"}) {
    if (line == nullptr) {
      continue;
    }
    curl_slist* const longer = curl_slist_append(headers_.get(), line);
    if (longer == nullptr) {
      return false;
    }
    static_cast<void>(headers_.release());
    headers_.reset(longer);
  }
  return true;
}

bool CurlHandles::PrepareHandles() {
  easy_.reset(curl_easy_init());
  multi_.reset(curl_multi_init());
  // One server, one request at a time: of the connections only the last can be of use again. The wake-up is
  // tried, since without it nothing could interrupt a wait.
  return easy_ && multi_ && curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 1L) == CURLM_OK &&
         curl_multi_wakeup(multi_.get()) == CURLM_OK;
}

bool CurlHandles::PrepareOptions(const HttpSettings& settings) {
  CurlOptions options(easy_.get());
  options.Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  options.Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
  options.Set(CURLOPT_WRITEFUNCTION, &OnBody);
  options.Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
  options.Set(CURLOPT_NOSIGNAL, 1L);
  options.Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
  options.Set(CURLOPT_QUICK_EXIT, 1L);  // leave the look-up of a name behind
  options.Set(CURLOPT_PROXY, "");       // not from the environment either
  options.Set(CURLOPT_NOPROXY, "*");
  options.Set(CURLOPT_PROTOCOLS_STR, "http");
  options.Set(CURLOPT_FOLLOWLOCATION, 0L);  // each redirect is judged by the owner
  options.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  options.Set(CURLOPT_HTTP09_ALLOWED, 0L);
  options.Set(CURLOPT_PATH_AS_IS, 1L);
  options.Set(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));  // the cameras know no other
  options.Set(CURLOPT_FRESH_CONNECT, keep_ ? 0L : 1L);
  options.Set(CURLOPT_FORBID_REUSE, keep_ ? 0L : 1L);
  if (keep_) {
    options.Set(CURLOPT_BUFFERSIZE, kKeptBufferBytes);
  }
  const auto longest = static_cast<Milliseconds::rep>(std::numeric_limits<int>::max());
  options.Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(settings.timeout.count(), longest)));
  return options.Good();
}

}  // namespace sarnevo::platform::posix
