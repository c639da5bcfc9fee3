#include "platform/posix/CurlTransfer.h"

#include <dlfcn.h>

#include <csignal>
#include <utility>

namespace sarnevo::platform::posix {

namespace {

// A name is looked up on a thread of libcurl's own which can't be interrupted, only left behind. Its code
// then has to stay, even when the host unloads this library.
void KeepLibraryLoaded() noexcept {
  Dl_info library{};
  if (dladdr(reinterpret_cast<void*>(&curl_global_init), &library) != 0 && library.dli_fname != nullptr) {
    dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

// A thread begins with the signal mask of the one that makes it. While this lives that is a full one, on whatever
// thread of the host this runs: libcurl's threads are to leave the host's signals to the host's.
class SignalBlock {
 public:
  SignalBlock() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t before_{};
};

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

}  // namespace

bool CurlTransfer::Prepare(std::unique_ptr<CurlHandles> handles, std::string_view method, HttpSink& sink) {
  if (!handles) {
    return false;
  }
  {
    const std::lock_guard guard(wakeLock_);
    handles_ = std::move(handles);
  }
  handles_->SetSink(&sink);
  return handles_->SetMethod(method);
}

bool CurlTransfer::Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) {
  looksUp_ = !url.Address();
  if (looksUp_) {
    KeepLibraryLoaded();
  }
  handles_->Detach();
  return handles_->Renew() && handles_->SetTarget(url, request, withCredentials) &&
         curl_multi_add_handle(handles_->Multi(), handles_->Easy()) == CURLM_OK;
}

std::optional<HttpError> CurlTransfer::Run() noexcept {
  std::optional<SignalBlock> block;
  if (looksUp_) {
    block.emplace();
  }
  int running = 0;
  if (curl_multi_perform(handles_->Multi(), &running) != CURLM_OK) {
    return HttpError::OutOfResources;
  }
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(handles_->Multi(), &left)) {
    if (message->msg == CURLMSG_DONE) {
      return FromCurl(message->data.result);
    }
  }
  return std::nullopt;
}

bool CurlTransfer::Wait(Milliseconds timeout) noexcept {
  int ready = 0;
  curl_multi_poll(handles_->Multi(), nullptr, 0, static_cast<int>(timeout.count()), &ready);
  return ready > 0;
}

void CurlTransfer::Resume() noexcept { curl_easy_pause(handles_->Easy(), CURLPAUSE_CONT); }

std::uint32_t CurlTransfer::Status() const noexcept {
  long status = 0;
  curl_easy_getinfo(handles_->Easy(), CURLINFO_RESPONSE_CODE, &status);
  return static_cast<std::uint32_t>(status);
}

void CurlTransfer::Wake() noexcept {
  const std::lock_guard guard(wakeLock_);
  if (handles_) {
    curl_multi_wakeup(handles_->Multi());
  }
}

std::unique_ptr<CurlHandles> CurlTransfer::Release() noexcept {
  std::unique_ptr<CurlHandles> going;
  {
    const std::lock_guard guard(wakeLock_);
    going = std::move(handles_);
  }
  if (going) {
    going->Detach();
    going->SetSink(nullptr);
  }
  return going;
}

}  // namespace sarnevo::platform::posix
