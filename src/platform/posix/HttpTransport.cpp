#include "platform/HttpTransport.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <limits>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "platform/posix/HttpTarget.h"
#include "platform/posix/HttpUrl.h"

namespace sarnevo::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxHeaderBytes = 256 * 1024;  // of one request, its redirects included
constexpr int kMaxRedirects = 10;
// libcurl hands over pieces of up to 16 KB and may hand over several; from here on it is told to wait.
constexpr std::size_t kMaxBuffered = 2 * CURL_MAX_WRITE_SIZE;
// How long a wait without a limit lasts before it is begun again.
constexpr Milliseconds kLongWait{60'000};

constexpr std::array<std::uint32_t, 5> kRedirects = {301, 302, 303, 307, 308};

struct EasyDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

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

curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
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

std::string_view Trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == text.npos ? std::string_view{}
                            : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// The value of the header line if it is the one called @p name, in lower case.
std::optional<std::string_view> HeaderValue(std::string_view line, std::string_view name) noexcept {
  const auto same = [](char given, char lower) {
    return (given >= 'A' && given <= 'Z' ? static_cast<char>(given - 'A' + 'a') : given) == lower;
  };
  if (line.size() <= name.size() || line[name.size()] != ':' ||
      !std::equal(name.begin(), name.end(), line.begin(), [&same](char n, char l) { return same(l, n); })) {
    return std::nullopt;
  }
  return Trimmed(line.substr(name.size() + 1));
}

}  // namespace

// The head of the reply that is coming in.
struct ReplyHead {
  bool complete = false;
  std::uint32_t status = 0;
  std::optional<std::uint64_t> contentLength;
  std::string location;

  bool IsRedirect() const noexcept {
    return !location.empty() && std::find(kRedirects.begin(), kRedirects.end(), status) != kRedirects.end();
  }
};

struct HttpExchange::Impl {
  Impl(HttpSettings common, HttpServer to) : settings(std::move(common)), server(std::move(to)) {}
  ~Impl() { Release(); }

  HttpError Send(const HttpRequestLine& request);
  HttpError AwaitBody();
  std::span<const std::uint8_t> Buffered() const noexcept { return std::span(body).subspan(taken); }
  void Close() noexcept;

  const HttpSettings settings;
  const HttpServer server;
  Milliseconds total{0};
  ReplyHead head;
  std::vector<std::uint8_t> body;  // its memory is got once, before the first byte comes
  std::size_t taken = 0;           // of body, by Read

 private:
  bool Prepare(const HttpRequestLine& request);
  HttpError Begin(const posix::HttpUrl& url, const HttpRequestLine& request, bool withCredentials);
  template <typename Enough>
  HttpError Await(Enough enough);
  Milliseconds NextWait(Clock::time_point lastProgress) const noexcept;
  void CollectResult() noexcept;
  HttpError Fail(HttpError error) noexcept;
  void Release() noexcept;

  static std::size_t OnHeader(const char* data, std::size_t size, std::size_t count, void* self) noexcept;
  static std::size_t OnBody(const char* data, std::size_t size, std::size_t count, void* self) noexcept;
  bool TakeHeaderLine(std::string_view line);

  std::unique_ptr<curl_slist, ListDeleter> headers;
  std::unique_ptr<CURL, EasyDeleter> easy;
  std::mutex wakeLock;  // keeps Close off a multi that goes away
  std::unique_ptr<CURLM, MultiDeleter> multi;
  // Written by Close on any thread; the wake-up behind it makes the owner look again.
  std::atomic<bool> closed{false};

  Clock::time_point limit = Clock::time_point::max();
  std::size_t headerBytes = 0;
  bool paused = false;                  // libcurl holds a piece back
  bool done = false;                    // nothing more comes
  HttpError outcome = HttpError::None;  // with done
  HttpError refused = HttpError::None;  // why a callback refused the reply
};

HttpError HttpExchange::Impl::Send(const HttpRequestLine& request) {
  const std::optional<posix::HttpUrl> first =
      posix::HttpUrl::Make(server, posix::RequestTarget(request.path, request.escapeQuery));
  if (!first || !posix::IsToken(request.method)) {
    return Fail(HttpError::InvalidRequest);
  }
  if (!Prepare(request)) {
    return Fail(HttpError::OutOfResources);
  }
  std::optional<posix::HttpUrl> url = first;
  for (int redirects = 0;; ++redirects) {
    HttpError error = Begin(*url, request, url->IsSameServer(*first));
    if (error == HttpError::None) {
      error = Await([this] { return head.complete; });
    }
    if (error != HttpError::None) {
      return error;
    }
    if (!head.complete) {
      return Fail(HttpError::InvalidReply);
    }
    if (!head.IsRedirect()) {
      break;
    }
    url = redirects < kMaxRedirects ? url->Resolve(head.location) : std::nullopt;
    if (!url) {
      return Fail(HttpError::RedirectRefused);
    }
    // The redirect's own body isn't wanted, and may have no end.
    curl_multi_remove_handle(multi.get(), easy.get());
  }
  // The credentials aren't needed any more.
  curl_easy_setopt(easy.get(), CURLOPT_USERNAME, nullptr);
  curl_easy_setopt(easy.get(), CURLOPT_PASSWORD, nullptr);
  return HttpError::None;
}

bool HttpExchange::Impl::Prepare(const HttpRequestLine& request) {
  if (!StartLibrary()) {
    return false;
  }
  body.reserve(kMaxBuffered);
  // RFC 9110, 7.6.1: each request has a connection of its own. The cameras' servers have few places, and a
  // connection that idles between two requests would keep one of them.
  for (const char* const line :
       {"Connection: close", "Cache-Control: no-cache", "Pragma: no-cache", "Accept:"}) {
    curl_slist* const longer = curl_slist_append(headers.get(), line);
    if (longer == nullptr) {
      return false;
    }
    headers.release();
    headers.reset(longer);
  }
  easy.reset(curl_easy_init());
  {
    const std::lock_guard guard(wakeLock);
    multi.reset(curl_multi_init());
  }
  // The wake-up is tried, since without it nothing could interrupt a wait.
  if (!easy || !multi || curl_multi_wakeup(multi.get()) != CURLM_OK) {
    return false;
  }

  CURL* const handle = easy.get();
  const auto set = [handle](CURLoption option, auto value) {
    return curl_easy_setopt(handle, option, value) == CURLE_OK;
  };
  bool good = set(CURLOPT_NOSIGNAL, 1L) && set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket) &&
              set(CURLOPT_QUICK_EXIT, 1L) &&                          // don't wait for the look-up of a name
              set(CURLOPT_PROXY, "") && set(CURLOPT_NOPROXY, "*") &&  // nor from the environment
              set(CURLOPT_PROTOCOLS_STR, "http") && set(CURLOPT_FOLLOWLOCATION, 0L) &&
              set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) &&
              set(CURLOPT_HTTP09_ALLOWED, 0L) && set(CURLOPT_PATH_AS_IS, 1L) &&
              set(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4)) && set(CURLOPT_FRESH_CONNECT, 1L) &&
              set(CURLOPT_FORBID_REUSE, 1L) && set(CURLOPT_USERAGENT, settings.agent.c_str()) &&
              set(CURLOPT_HTTPHEADER, headers.get()) &&
              set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings.timeout.count())) &&
              set(CURLOPT_HEADERFUNCTION, &OnHeader) && set(CURLOPT_HEADERDATA, this) &&
              set(CURLOPT_WRITEFUNCTION, &OnBody) && set(CURLOPT_WRITEDATA, this);
  if (request.method == "HEAD") {
    good = good && set(CURLOPT_NOBODY, 1L);
  } else if (request.method != "GET") {
    good = good && set(CURLOPT_CUSTOMREQUEST, std::string(request.method).c_str());
  }
  if (total.count() > 0) {
    limit = Clock::now() + total;
  }
  return good;
}

HttpError HttpExchange::Impl::Begin(const posix::HttpUrl& url, const HttpRequestLine& request,
                                    bool withCredentials) {
  head = ReplyHead{};
  body.clear();
  done = false;
  if (!url.HasNumericHost()) {
    KeepLibraryLoaded();
  }
  CURL* const handle = easy.get();
  const std::string user(request.userName);
  const std::string password(request.password);
  const bool good =
      curl_easy_setopt(handle, CURLOPT_URL, url.Text().c_str()) == CURLE_OK &&
      curl_easy_setopt(handle, CURLOPT_HTTPAUTH, withCredentials ? CURLAUTH_BASIC : CURLAUTH_NONE) ==
          CURLE_OK &&
      curl_easy_setopt(handle, CURLOPT_USERNAME, withCredentials ? user.c_str() : nullptr) == CURLE_OK &&
      curl_easy_setopt(handle, CURLOPT_PASSWORD, withCredentials ? password.c_str() : nullptr) == CURLE_OK &&
      curl_multi_add_handle(multi.get(), handle) == CURLM_OK;
  return good ? HttpError::None : Fail(HttpError::OutOfResources);
}

// Drives the transfer until there is enough of it or it is done. A socket that has become ready counts as
// progress, so that each receive has its time-out to itself, whole header lines or not.
template <typename Enough>
HttpError HttpExchange::Impl::Await(Enough enough) {
  Clock::time_point lastProgress = Clock::now();
  while (!closed.load(std::memory_order_acquire)) {
    if (done) {
      return outcome;
    }
    int running = 0;
    if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
      return Fail(HttpError::OutOfResources);
    }
    CollectResult();
    if (enough() || done) {
      if (done && !head.IsRedirect()) {
        Release();
      }
      return enough() ? HttpError::None : outcome;
    }
    const Milliseconds wait = NextWait(lastProgress);
    if (wait.count() <= 0) {
      return Fail(HttpError::TimedOut);
    }
    int ready = 0;
    if (curl_multi_poll(multi.get(), nullptr, 0, static_cast<int>(wait.count()), &ready) != CURLM_OK) {
      return Fail(HttpError::OutOfResources);
    }
    if (ready > 0) {
      lastProgress = Clock::now();
    }
  }
  return Fail(HttpError::Cancelled);
}

Milliseconds HttpExchange::Impl::NextWait(Clock::time_point lastProgress) const noexcept {
  const Clock::time_point now = Clock::now();
  Milliseconds wait = kLongWait;
  if (settings.timeout.count() > 0) {
    wait = std::min(wait, std::chrono::ceil<Milliseconds>(lastProgress + settings.timeout - now));
  }
  if (limit != Clock::time_point::max()) {
    wait = std::min(wait, std::chrono::ceil<Milliseconds>(limit - now));
  }
  return wait;
}

void HttpExchange::Impl::CollectResult() noexcept {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi.get(), &left)) {
    if (message->msg == CURLMSG_DONE) {
      done = true;
      outcome = refused != HttpError::None ? refused : FromCurl(message->data.result);
    }
  }
}

HttpError HttpExchange::Impl::AwaitBody() {
  if (closed.load(std::memory_order_acquire)) {
    return Fail(HttpError::Cancelled);
  }
  if (!Buffered().empty()) {
    return HttpError::None;
  }
  body.clear();
  taken = 0;
  if (done) {
    return outcome;
  }
  if (!head.complete) {
    return HttpError::InvalidRequest;
  }
  if (paused) {
    paused = false;
    // Hands over what was held back, at once or in the next round.
    curl_easy_pause(easy.get(), CURLPAUSE_CONT);
  }
  return Await([this] { return !body.empty(); });
}

std::size_t HttpExchange::Impl::OnBody(const char* data, std::size_t size, std::size_t count,
                                       void* self) noexcept {
  auto& impl = *static_cast<Impl*>(self);
  const std::size_t bytes = size * count;
  if (impl.head.IsRedirect()) {
    return bytes;
  }
  if (bytes > impl.body.capacity() - impl.body.size()) {
    impl.paused = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  impl.body.insert(impl.body.end(), data, data + bytes);
  return bytes;
}

std::size_t HttpExchange::Impl::OnHeader(const char* data, std::size_t size, std::size_t count,
                                         void* self) noexcept {
  auto& impl = *static_cast<Impl*>(self);
  const std::size_t bytes = size * count;
  impl.headerBytes += bytes;
  if (impl.headerBytes > kMaxHeaderBytes) {
    impl.refused = HttpError::ReplyTooLarge;
    return 0;
  }
  try {
    return impl.head.complete || impl.TakeHeaderLine({data, bytes}) ? bytes : 0;  // else: a trailer
  } catch (const std::bad_alloc&) {
    impl.refused = HttpError::OutOfResources;
    return 0;
  }
}

bool HttpExchange::Impl::TakeHeaderLine(std::string_view line) {
  if (Trimmed(line).empty()) {
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    head.status = static_cast<std::uint32_t>(status);
    // Behind an informational head (RFC 9110, 15.2) another one follows.
    head.complete = status / 100 != 1;
  } else if (line.starts_with("HTTP/")) {
    head = ReplyHead{};
  } else if (const auto location = HeaderValue(line, "location")) {
    head.location = *location;
  } else if (const auto length = HeaderValue(line, "content-length")) {
    // RFC 9112, 6.3: a length that can't be read, or two that differ, make the reply unusable.
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(length->data(), length->data() + length->size(), value);
    if (error != std::errc{} || end != length->data() + length->size() ||
        head.contentLength.value_or(value) != value) {
      refused = HttpError::InvalidReply;
      return false;
    }
    head.contentLength = value;
  }
  return true;
}

HttpError HttpExchange::Impl::Fail(HttpError error) noexcept {
  done = true;
  outcome = error;
  body.clear();
  taken = 0;
  Release();
  return error;
}

void HttpExchange::Impl::Release() noexcept {
  std::unique_ptr<CURLM, MultiDeleter> going;
  {
    const std::lock_guard guard(wakeLock);
    going = std::move(multi);
  }
  if (going && easy) {
    curl_multi_remove_handle(going.get(), easy.get());
  }
  easy.reset();
  headers.reset();
}

void HttpExchange::Impl::Close() noexcept {
  closed.store(true, std::memory_order_release);
  const std::lock_guard guard(wakeLock);
  if (multi) {
    curl_multi_wakeup(multi.get());
  }
}

HttpExchange::HttpExchange(HttpSettings settings, HttpServer server)
    : impl_(std::make_unique<Impl>(std::move(settings), std::move(server))) {}

HttpExchange::~HttpExchange() = default;

void HttpExchange::LimitTo(Milliseconds total) noexcept { impl_->total = total; }

HttpError HttpExchange::Send(const HttpRequestLine& request) noexcept {
  try {
    return impl_->Send(request);
  } catch (const std::exception&) {
    return HttpError::OutOfResources;
  }
}

std::uint32_t HttpExchange::StatusCode() const noexcept { return impl_->head.status; }

std::optional<std::uint64_t> HttpExchange::ContentLength() const noexcept { return impl_->head.contentLength; }

HttpError HttpExchange::DataAvailable(std::size_t& count) noexcept {
  const HttpError error = impl_->AwaitBody();
  count = impl_->Buffered().size();
  return error;
}

HttpError HttpExchange::Read(std::span<std::uint8_t> into, std::size_t& count) noexcept {
  count = 0;
  if (into.empty()) {
    return HttpError::None;
  }
  const HttpError error = impl_->AwaitBody();
  if (error == HttpError::None) {
    const std::span<const std::uint8_t> ready = impl_->Buffered();
    count = std::min(into.size(), ready.size());
    std::copy_n(ready.begin(), count, into.begin());
    impl_->taken += count;
  }
  return error;
}

void HttpExchange::Close() noexcept { impl_->Close(); }

}  // namespace sarnevo::platform
