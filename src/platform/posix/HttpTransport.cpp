#include "platform/HttpTransport.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "platform/posix/CurlTransfer.h"
#include "platform/posix/HttpReplyHead.h"
#include "platform/posix/HttpTarget.h"
#include "platform/posix/HttpUrl.h"
#include "platform/posix/KeptConnection.h"

namespace sarnevo::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxHeaderBytes = 256 * 1024;  // of one request, its redirects included
constexpr int kMaxRedirects = 10;
// Of a body; from here on the sender has to wait, which TCP sees to.
constexpr std::size_t kMaxBuffered = 2 * CURL_MAX_WRITE_SIZE;
// How long a wait without a limit lasts before it is begun again.
constexpr Milliseconds kLongWait{60'000};

}  // namespace

struct HttpKeeper::Impl {
  std::mutex lock;
  // Both under lock.
  std::unique_ptr<posix::KeptConnection> connection;
  std::unique_ptr<posix::CurlHandles> handles;
  // The exchanges' thread only: libcurl understands what the connection doesn't; the request before and its URL.
  bool strange = false;
  std::string path;
  bool escapeQuery = false;
  std::optional<posix::HttpUrl> url;

  template <typename Kept>
  std::unique_ptr<Kept> Take(std::unique_ptr<Kept>& kept) noexcept {
    const std::lock_guard guard(lock);
    return std::move(kept);
  }
};

HttpKeeper::HttpKeeper() : impl_(std::make_unique<Impl>()) {}

HttpKeeper::~HttpKeeper() = default;

void HttpKeeper::Drop() noexcept {
  impl_->Take(impl_->connection).reset();
  impl_->Take(impl_->handles).reset();
}

struct HttpExchange::Impl final : posix::HttpSink {
  Impl(HttpSettings common, HttpServer to, HttpKeeper::Impl* keep)
      : settings(std::move(common)), server(std::move(to)), keeper(keep) {}

  HttpError Send(const HttpRequestLine& request);
  HttpError AwaitBody();
  std::span<const std::uint8_t> Buffered() const noexcept { return std::span(body).subspan(taken); }
  void Close() noexcept;

  bool OnHeaderLine(std::string_view line) noexcept override;
  Answer OnBody(std::string_view piece) noexcept override;

  std::optional<posix::HttpUrl> UrlOf(const HttpRequestLine& request) const;
  HttpError Follow(const posix::HttpUrl& first, const HttpRequestLine& request);
  HttpError Ask(const posix::HttpUrl& url, const HttpRequestLine& request, bool firstServer);
  HttpError AskOverConnection(const posix::HttpUrl& url, const HttpRequestLine& request);
  HttpError AskBy(posix::HttpTransfer& by, const posix::HttpUrl& url, const HttpRequestLine& request,
                  bool withCredentials);
  std::unique_ptr<posix::KeptConnection> SetConnection(std::unique_ptr<posix::KeptConnection> next) noexcept;
  template <typename Enough>
  HttpError Await(Enough enough);
  Milliseconds NextWait(Clock::time_point lastProgress) const noexcept;
  void Settle();
  HttpError Fail(HttpError error) noexcept;

  const HttpSettings settings;
  const HttpServer server;
  HttpKeeper::Impl* const keeper;
  // Written by Close on any thread; the wake-up that follows makes the owner look at it, behind whatever it does.
  std::atomic<bool> closed{false};
  posix::CurlTransfer curl;
  // Keeps Close off a connection that goes away: written by the owner under the lock, read by the owner without.
  std::mutex connectionLock;
  std::unique_ptr<posix::KeptConnection> connection;

  // From here on the owner's thread only.
  posix::HttpTransfer* transfer = nullptr;  // the last one begun
  Milliseconds total{0};
  Clock::time_point limit = Clock::time_point::max();
  posix::HttpReplyHead head;
  std::size_t headerBytes = 0;
  HttpError refused = HttpError::None;  // why the sink refused the reply
  std::vector<std::uint8_t> body;
  std::size_t taken = 0;             // of body, by Read
  bool paused = false;               // a piece of the body was put off
  std::optional<HttpError> outcome;  // of the whole exchange; nothing more comes then
};

HttpError HttpExchange::Impl::Send(const HttpRequestLine& request) {
  const std::optional<posix::HttpUrl> url = UrlOf(request);
  if (!url || !posix::IsToken(request.method)) {
    return Fail(HttpError::InvalidRequest);
  }
  if (total.count() > 0) {
    limit = Clock::now() + total;
  }
  const HttpError error = Follow(*url, request);
  if (outcome) {
    Settle();
  }
  return error;
}

std::optional<posix::HttpUrl> HttpExchange::Impl::UrlOf(const HttpRequestLine& request) const {
  const auto make = [&] {
    return posix::HttpUrl::Make(server, posix::RequestTarget(request.path, request.escapeQuery));
  };
  if (keeper == nullptr) {
    return make();
  }
  if (!keeper->url || keeper->path != request.path || keeper->escapeQuery != request.escapeQuery) {
    keeper->url.reset();
    keeper->path = request.path;
    keeper->escapeQuery = request.escapeQuery;
    keeper->url = make();
  }
  return keeper->url;
}

// Sends the request, and sends it again where the reply leads, until a reply stays.
HttpError HttpExchange::Impl::Follow(const posix::HttpUrl& first, const HttpRequestLine& request) {
  std::optional<posix::HttpUrl> url = first;
  for (int redirects = 0; url; ++redirects) {
    const HttpError error = Ask(*url, request, url->IsSameServer(first));
    if (error != HttpError::None) {
      // What was taken for a body, behind a head that was none, is nobody's.
      return Fail(error);
    }
    if (!head.IsRedirect()) {
      return HttpError::None;
    }
    // The redirect's own body isn't waited for; it may have no end.
    url = redirects < kMaxRedirects ? url->Resolve(head.Location()) : std::nullopt;
  }
  return Fail(HttpError::RedirectRefused);
}

// Credentials go to the first server alone, and so does the kept connection.
HttpError HttpExchange::Impl::Ask(const posix::HttpUrl& url, const HttpRequestLine& request, bool firstServer) {
  if (firstServer && keeper != nullptr && !keeper->strange && posix::KeptConnection::Suits(url, request)) {
    const HttpError error = AskOverConnection(url, request);
    if (!connection->IsStrange()) {
      return error;
    }
    // libcurl stays with it as long as it gets on better.
    keeper->strange = true;
    SetConnection(nullptr);
    headerBytes = 0;
  }
  if (!curl.IsPrepared()) {
    auto handles = keeper != nullptr ? keeper->Take(keeper->handles) : nullptr;
    if (!handles) {
      handles = posix::CurlHandles::Make(settings, keeper != nullptr);
    }
    if (!curl.Prepare(std::move(handles), request.method, *this)) {
      return HttpError::OutOfResources;
    }
  }
  return AskBy(curl, url, request, firstServer);
}

HttpError HttpExchange::Impl::AskOverConnection(const posix::HttpUrl& url, const HttpRequestLine& request) {
  if (!connection) {
    auto kept = keeper->Take(keeper->connection);
    SetConnection(kept ? std::move(kept) : std::make_unique<posix::KeptConnection>(settings.agent));
  }
  const HttpError error = AskBy(*connection, url, request, true);
  return connection->WasLetGo() ? AskBy(*connection, url, request, true) : error;
}

HttpError HttpExchange::Impl::AskBy(posix::HttpTransfer& by, const posix::HttpUrl& url,
                                    const HttpRequestLine& request, bool withCredentials) {
  transfer = &by;
  head = posix::HttpReplyHead{};
  outcome.reset();
  refused = HttpError::None;
  body.clear();
  taken = 0;
  paused = false;
  if (!by.Begin(url, request, withCredentials)) {
    return HttpError::OutOfResources;
  }
  const HttpError error = Await([this] { return head.IsComplete(); });
  return error == HttpError::None && !head.IsComplete() ? HttpError::InvalidReply : error;
}

// Whoever closes the exchange meanwhile finds the one or the other.
std::unique_ptr<posix::KeptConnection> HttpExchange::Impl::SetConnection(
    std::unique_ptr<posix::KeptConnection> next) noexcept {
  if (next) {
    next->SetSink(this);
  }
  const std::lock_guard guard(connectionLock);
  return std::exchange(connection, std::move(next));
}

HttpError HttpExchange::Impl::AwaitBody() {
  if (closed.load(std::memory_order_acquire)) {
    return Fail(HttpError::Cancelled);
  }
  if (!Buffered().empty()) {
    return HttpError::None;
  }
  taken = 0;
  if (outcome) {
    std::vector<std::uint8_t>().swap(body);  // a finished exchange may stay for long
    return *outcome;
  }
  body.clear();
  if (!head.IsComplete()) {
    return HttpError::InvalidRequest;  // nothing was sent
  }
  if (std::exchange(paused, false)) {
    curl.Resume();
  }
  const HttpError error = Await([this] { return !body.empty(); });
  if (error != HttpError::None) {
    return Fail(error);
  }
  if (outcome) {
    Settle();
  }
  return HttpError::None;
}

// Moves the transfer on until there is enough of it or it has ended. Whatever makes the connection ready
// counts as a receive, so that each has its time-out to itself, whole header lines or not.
template <typename Enough>
HttpError HttpExchange::Impl::Await(Enough enough) {
  Clock::time_point lastProgress = Clock::now();
  while (!closed.load(std::memory_order_acquire)) {
    outcome = transfer->Run();
    if (closed.load(std::memory_order_acquire)) {
      break;  // the connection's end may be of our own making, and isn't the reply's
    }
    if (outcome && refused != HttpError::None) {
      outcome = refused;
    }
    if (enough()) {
      return HttpError::None;
    }
    if (outcome) {
      return *outcome;
    }
    const Milliseconds wait = NextWait(lastProgress);
    if (wait.count() <= 0) {
      return HttpError::TimedOut;
    }
    if (transfer->Wait(wait)) {
      lastProgress = Clock::now();
    }
  }
  return HttpError::Cancelled;
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

bool HttpExchange::Impl::OnHeaderLine(std::string_view line) noexcept {
  headerBytes += line.size();
  if (headerBytes > kMaxHeaderBytes) {
    refused = HttpError::ReplyTooLarge;
  } else if (!head.IsComplete() && posix::HttpReplyHead::IsEnd(line)) {
    refused = head.TakeEnd(transfer->Status());
  } else if (!head.IsComplete()) {
    try {
      refused = head.TakeLine(line);
    } catch (const std::bad_alloc&) {
      refused = HttpError::OutOfResources;
    }
  }
  return refused == HttpError::None;
}

HttpExchange::Impl::Answer HttpExchange::Impl::OnBody(std::string_view piece) noexcept {
  if (head.IsRedirect()) {
    return Answer::Taken;
  }
  if (piece.size() > kMaxBuffered - body.size()) {
    paused = true;
    return Answer::Later;
  }
  try {
    body.insert(body.end(), piece.begin(), piece.end());
  } catch (const std::bad_alloc&) {
    refused = HttpError::OutOfResources;
    return Answer::Refused;
  }
  return Answer::Taken;
}

// Nothing more comes: what is still to be read stays, without the room for more.
void HttpExchange::Impl::Settle() {
  std::unique_ptr<posix::CurlHandles> handles = curl.Release();
  std::unique_ptr<posix::KeptConnection> kept = SetConnection(nullptr);
  body.shrink_to_fit();
  if (kept) {
    keeper->strange = kept->IsStrange();
    kept->Rest();
  }
  if (keeper != nullptr && outcome == HttpError::None) {
    // A Close from now on is followed by the keeper's Drop, which finds them; one from before is seen here.
    const std::lock_guard guard(keeper->lock);
    if (!closed.load(std::memory_order_acquire)) {
      keeper->handles = std::move(handles);
      keeper->connection = std::move(kept);
    }
  }
}

HttpError HttpExchange::Impl::Fail(HttpError error) noexcept {
  outcome = error;
  std::vector<std::uint8_t>().swap(body);
  taken = 0;
  curl.Release().reset();
  if (keeper != nullptr) {
    keeper->strange = connection && connection->IsStrange();
  }
  SetConnection(nullptr).reset();
  return error;
}

void HttpExchange::Impl::Close() noexcept {
  closed.store(true, std::memory_order_release);
  curl.Wake();
  const std::lock_guard guard(connectionLock);
  if (connection) {
    connection->Wake();
  }
}

HttpExchange::HttpExchange(HttpSettings settings, HttpServer server, HttpKeeper* keeper)
    : impl_(std::make_unique<Impl>(std::move(settings), std::move(server),
                                   keeper != nullptr ? keeper->impl_.get() : nullptr)) {}

HttpExchange::~HttpExchange() = default;

void HttpExchange::LimitTo(Milliseconds total) noexcept { impl_->total = total; }

HttpError HttpExchange::Send(const HttpRequestLine& request) noexcept {
  try {
    return impl_->Send(request);
  } catch (const std::exception&) {
    return impl_->Fail(HttpError::OutOfResources);
  }
}

std::uint32_t HttpExchange::StatusCode() const noexcept { return impl_->head.Status(); }

std::optional<std::uint64_t> HttpExchange::ContentLength() const noexcept {
  return impl_->head.ContentLength();
}

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
