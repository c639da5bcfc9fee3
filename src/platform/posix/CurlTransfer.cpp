#include "platform/posix/CurlTransfer.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <algorithm>
#include <limits>
#include <string>

namespace sarnevo::platform::posix {

namespace {

// libcurl's own state of the process. It counts its users, so that a host that uses it too isn't disturbed;
// everything is initialised, since a host that comes later would find it done and miss what was left out.
bool StartLibrary() noexcept {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

// A name is looked up on a thread of libcurl's own which can't be interrupted, only left behind. Its code
// then has to stay, even when the host unloads this library.
void KeepLibraryLoaded() noexcept {
  Dl_info library{};
  if (dladdr(reinterpret_cast<void*>(&curl_global_init), &library) != 0 && library.dli_fname != nullptr) {
    dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

// The host's children inherit no connection.
curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::size_t OnHeader(const char* data, std::size_t size, std::size_t count, void* sink) noexcept {
  return static_cast<CurlSink*>(sink)->OnHeaderLine({data, size * count}) ? size * count : 0;
}

std::size_t OnBody(const char* data, std::size_t size, std::size_t count, void* sink) noexcept {
  return static_cast<CurlSink*>(sink)->OnBody({data, size * count}) ? size * count : CURL_WRITEFUNC_PAUSE;
}

HttpError FromCurl(CURLcode code) noexcept {
  switch (code) {
    case CURLE_OK:
      return HttpError::None;
    case CURLE_URL_MALFORMAT:
      return HttpError::InvalidRequest;
    case CURLE_COULDNT_RESOLVE_HOST:
      return HttpError::NameNotResolved;
    case CURLE_COULDNT_CONNECT:
      return HttpError::CannotConnect;
    case CURLE_OPERATION_TIMEDOUT:
      return HttpError::TimedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return HttpError::ConnectionBroken;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
      return HttpError::InvalidReply;
    case CURLE_LOGIN_DENIED:
      return HttpError::LoginFailure;
    case CURLE_OUT_OF_MEMORY:
    case CURLE_FAILED_INIT:
      return HttpError::OutOfResources;
    default:
      return HttpError::Other;
  }
}

// Sets options one by one and remembers whether all were taken.
class Options {
 public:
  explicit Options(CURL* easy) noexcept : easy_(easy) {}

  template <typename Value>
  void Set(CURLoption option, Value value) noexcept {
    good_ = good_ && curl_easy_setopt(easy_, option, value) == CURLE_OK;
  }
  bool Good() const noexcept { return good_; }

 private:
  CURL* const easy_;
  bool good_ = true;
};

}  // namespace

bool CurlTransfer::PrepareHeaders() {
  // Connection (RFC 9110, 7.6.1): the cameras' servers have few places, and a connection that idled between
  // two requests would keep one of them. "Accept:" takes out what libcurl would send by itself.
  for (const char* const line :
       {"Connection: close", "Cache-Control: no-cache", "Pragma: no-cache", "Accept:"}) {
    curl_slist* const longer = curl_slist_append(headers_.get(), line);
    if (longer == nullptr) {
      return false;
    }
    static_cast<void>(headers_.release());
    headers_.reset(longer);
  }
  return true;
}

bool CurlTransfer::PrepareHandles() {
  easy_.reset(curl_easy_init());
  const std::lock_guard guard(wakeLock_);
  multi_.reset(curl_multi_init());
  // The wake-up is tried, since without it nothing could interrupt a wait.
  return easy_ && multi_ && curl_multi_wakeup(multi_.get()) == CURLM_OK;
}

bool CurlTransfer::Prepare(const HttpSettings& settings, std::string_view method, CurlSink& sink) {
  if (!StartLibrary() || !PrepareHeaders() || !PrepareHandles()) {
    return false;
  }
  Options options(easy_.get());
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
  options.Set(CURLOPT_FRESH_CONNECT, 1L);
  options.Set(CURLOPT_FORBID_REUSE, 1L);
  options.Set(CURLOPT_USERAGENT, settings.agent.c_str());
  options.Set(CURLOPT_HTTPHEADER, headers_.get());
  const auto longest = static_cast<Milliseconds::rep>(std::numeric_limits<int>::max());
  options.Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(settings.timeout.count(), longest)));
  options.Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  options.Set(CURLOPT_HEADERDATA, static_cast<void*>(&sink));
  options.Set(CURLOPT_WRITEFUNCTION, &OnBody);
  options.Set(CURLOPT_WRITEDATA, static_cast<void*>(&sink));
  if (method == "HEAD") {
    options.Set(CURLOPT_NOBODY, 1L);
  } else if (method != "GET") {
    options.Set(CURLOPT_CUSTOMREQUEST, std::string(method).c_str());
  }
  return options.Good();
}

bool CurlTransfer::Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) {
  if (!url.HasNumericHost()) {
    KeepLibraryLoaded();
  }
  curl_multi_remove_handle(multi_.get(), easy_.get());
  Options options(easy_.get());
  options.Set(CURLOPT_URL, url.Text().c_str());
  options.Set(CURLOPT_HTTPAUTH, withCredentials ? CURLAUTH_BASIC : CURLAUTH_NONE);
  options.Set(CURLOPT_USERNAME, withCredentials ? request.userName : nullptr);
  options.Set(CURLOPT_PASSWORD, withCredentials ? request.password : nullptr);
  return options.Good() && curl_multi_add_handle(multi_.get(), easy_.get()) == CURLM_OK;
}

std::optional<HttpError> CurlTransfer::Run() noexcept {
  int running = 0;
  if (curl_multi_perform(multi_.get(), &running) != CURLM_OK) {
    return HttpError::OutOfResources;
  }
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg == CURLMSG_DONE) {
      return FromCurl(message->data.result);
    }
  }
  return std::nullopt;
}

bool CurlTransfer::Wait(Milliseconds timeout) noexcept {
  int ready = 0;
  curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(timeout.count()), &ready);
  return ready > 0;
}

void CurlTransfer::Resume() noexcept { curl_easy_pause(easy_.get(), CURLPAUSE_CONT); }

std::uint32_t CurlTransfer::Status() const noexcept {
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  return static_cast<std::uint32_t>(status);
}

void CurlTransfer::Wake() noexcept {
  const std::lock_guard guard(wakeLock_);
  if (multi_) {
    curl_multi_wakeup(multi_.get());
  }
}

void CurlTransfer::Release() noexcept {
  std::unique_ptr<CURLM, MultiDeleter> going;
  {
    const std::lock_guard guard(wakeLock_);
    going = std::move(multi_);
  }
  if (going && easy_) {
    curl_multi_remove_handle(going.get(), easy_.get());
  }
  easy_.reset();
  headers_.reset();
}

}  // namespace sarnevo::platform::posix
