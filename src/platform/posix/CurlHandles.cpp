#include "platform/posix/CurlHandles.h"

#include <sys/socket.h>

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

namespace sarnevo::platform::posix {

namespace {

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
  std::unique_ptr<CurlHandles> handles(new CurlHandles);
  const bool good = StartLibrary() && handles->PrepareHeaders(keep) && handles->PrepareHandles() &&
                    handles->PrepareOptions(settings, keep);
  return good ? std::move(handles) : nullptr;
}

CurlHandles::~CurlHandles() {
  if (multi_ && easy_) {
    Detach();
  }
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

bool CurlHandles::PrepareHeaders(bool keep) {
  // Connection (RFC 9110, 7.6.1): the cameras' servers have few places, and a connection that idled between
  // two requests would keep one of them. Without the line HTTP/1.1 keeps it (RFC 9112, 9.3). "Accept:" takes
  // out what libcurl would send by itself.
  constexpr const char* kLines[] = {"Connection: close", "Cache-Control: no-cache", "Pragma: no-cache",
                                    "Accept:"};
  for (const char* const line : std::span(kLines).subspan(keep ? 1 : 0)) {
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

bool CurlHandles::PrepareOptions(const HttpSettings& settings, bool keep) {
  CurlOptions options(easy_.get());
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
  options.Set(CURLOPT_FRESH_CONNECT, keep ? 0L : 1L);
  options.Set(CURLOPT_FORBID_REUSE, keep ? 0L : 1L);
  options.Set(CURLOPT_USERAGENT, settings.agent.c_str());
  options.Set(CURLOPT_HTTPHEADER, headers_.get());
  const auto longest = static_cast<Milliseconds::rep>(std::numeric_limits<int>::max());
  options.Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(settings.timeout.count(), longest)));
  return options.Good();
}

}  // namespace sarnevo::platform::posix
