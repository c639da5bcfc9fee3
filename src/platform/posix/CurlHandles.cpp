#include "platform/posix/CurlHandles.h"

#include <sys/socket.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/SecureErase.h"
#include "platform/posix/BasicCredentials.h"

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
  const bool good = StartLibrary() && handles->PrepareHeaders(settings, keep) && handles->PrepareHandles() &&
                    handles->PrepareOptions(settings, keep);
  return good ? std::move(handles) : nullptr;
}

CurlHandles::~CurlHandles() {
  if (multi_ && easy_) {
    Detach();
  }
}

void CurlHandles::Detach() noexcept {
  curl_multi_remove_handle(multi_.get(), easy_.get());
  curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers_.get());
  SecureErase(credentials_);
}

bool CurlHandles::Authorize(const char* userName, const char* password) {
  SecureErase(credentials_);
  credentials_ = BasicCredentials(userName, password);
  credentialsHeader_.data = credentials_.data();
  credentialsHeader_.next = headers_.get();
  return curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, &credentialsHeader_) == CURLE_OK;
}

bool CurlHandles::PrepareHeaders(const HttpSettings& settings, bool keep) {
  // Connection (RFC 9110, 7.6.1): the cameras' servers have few places, and a connection that idled between
  // two requests would keep one of them. Without the line HTTP/1.1 keeps it (RFC 9112, 9.3). "Accept:" takes
  // out what libcurl would send by itself.
  const std::string agent = "User-Agent: " + settings.agent;
  for (const char* const line : {agent.c_str(), keep ? nullptr : "Connection: close", "Cache-Control: no-cache",
                                 "Pragma: no-cache", "Accept:"}) {
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
  options.Set(CURLOPT_HTTPHEADER, headers_.get());
  const auto longest = static_cast<Milliseconds::rep>(std::numeric_limits<int>::max());
  options.Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(settings.timeout.count(), longest)));
  return options.Good();
}

}  // namespace sarnevo::platform::posix
