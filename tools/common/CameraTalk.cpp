#include "CameraTalk.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <mutex>
#include <new>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

namespace kolvex_host {

namespace {

constexpr long kConnectMs = 1500;
constexpr long kWholeMs = 3000;
constexpr std::size_t kMostBody = 65'536;

std::size_t TakeBody(const char* bytes, std::size_t, std::size_t count, void* answer) {
  std::string& body = static_cast<Answer*>(answer)->body;
  body.append(bytes, std::min(count, kMostBody - body.size()));
  return body.size() < kMostBody ? count : 0;  // enough: the transfer ends here
}

std::size_t TakeHeader(const char* bytes, std::size_t, std::size_t count, void* answer) {
  std::string line(bytes, count);
  std::transform(line.begin(), line.end(), line.begin(), [](unsigned char c) { return std::tolower(c); });
  if (line.starts_with("www-authenticate:")) {
    static_cast<Answer*>(answer)->challenge += line;
  }
  return count;
}

int LookAtStop(void* stop, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<const std::stop_token*>(stop)->stop_requested() ? 1 : 0;
}

Answer::State StateOf(CURLcode result, bool connected, long error) {
  switch (result) {
    case CURLE_COULDNT_CONNECT:
      return error == ECONNREFUSED ? Answer::State::Refused : Answer::State::Unreachable;
    case CURLE_OPERATION_TIMEDOUT:
      return connected ? Answer::State::Silent : Answer::State::Unreachable;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_RTSP_CSEQ_ERROR:
    case CURLE_RTSP_SESSION_ERROR:
      return Answer::State::OtherProtocol;
    default:
      return connected ? Answer::State::Silent : Answer::State::Unreachable;
  }
}

}  // namespace

struct CameraTalk::Curl {
  explicit Curl(std::stop_token token) : stop(std::move(token)) {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    handle.reset(curl_easy_init());
    if (!handle) {
      throw std::bad_alloc();
    }
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_PROXY, "");  // cameras are in one's own network
    Set(CURLOPT_CONNECTTIMEOUT_MS, kConnectMs);
    Set(CURLOPT_TIMEOUT_MS, kWholeMs);
    Set(CURLOPT_WRITEFUNCTION, &TakeBody);
    Set(CURLOPT_HEADERFUNCTION, &TakeHeader);
    Set(CURLOPT_NOPROGRESS, 0L);
    Set(CURLOPT_XFERINFOFUNCTION, &LookAtStop);
    Set(CURLOPT_XFERINFODATA, static_cast<void*>(&stop));
  }

  template <typename Value>
  void Set(CURLoption option, Value value) {
    curl_easy_setopt(handle.get(), option, value);
  }

  Answer Perform() {
    Answer answer;
    Set(CURLOPT_WRITEDATA, static_cast<void*>(&answer));
    Set(CURLOPT_HEADERDATA, static_cast<void*>(&answer));
    const CURLcode result = curl_easy_perform(handle.get());
    long error = 0;
    curl_off_t connectTime = 0;
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    curl_easy_getinfo(handle.get(), CURLINFO_OS_ERRNO, &error);
    curl_easy_getinfo(handle.get(), CURLINFO_CONNECT_TIME_T, &connectTime);
    // A reply that begins well and then stalls or breaks off has said what matters here.
    answer.state = answer.status != 0 ? Answer::State::Answered : StateOf(result, connectTime > 0, error);
    if (answer.state == Answer::State::Unreachable) {
      answer.detail = result == CURLE_COULDNT_CONNECT && error != 0
                          ? std::generic_category().message(static_cast<int>(error))
                          : "no answer in time";
    }
    return answer;
  }

  struct Free {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  std::stop_token stop;
  std::unique_ptr<CURL, Free> handle;
};

CameraTalk::CameraTalk(std::stop_token stop) : curl_(std::make_unique<Curl>(std::move(stop))) {}
CameraTalk::~CameraTalk() = default;

Answer CameraTalk::Get(const Place& place, const std::string& path, const Login& login) {
  curl_->Set(CURLOPT_URL, fmt::format("http://{}/{}", place.Text(), path).c_str());
  curl_->Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
  curl_->Set(CURLOPT_USERNAME, login.user.c_str());
  curl_->Set(CURLOPT_PASSWORD, login.password.c_str());
  return curl_->Perform();
}

Answer CameraTalk::Ask(Rtsp method, const std::string& uri, const std::string& transport) {
  constexpr long kMethods[] = {CURL_RTSPREQ_DESCRIBE, CURL_RTSPREQ_SETUP, CURL_RTSPREQ_PLAY,
                               CURL_RTSPREQ_TEARDOWN};
  curl_->Set(CURLOPT_URL, uri.c_str());
  curl_->Set(CURLOPT_RTSP_STREAM_URI, uri.c_str());
  curl_->Set(CURLOPT_RTSP_TRANSPORT, transport.empty() ? nullptr : transport.c_str());
  curl_->Set(CURLOPT_RTSP_REQUEST, kMethods[static_cast<int>(method)]);
  return curl_->Perform();
}

}  // namespace kolvex_host
