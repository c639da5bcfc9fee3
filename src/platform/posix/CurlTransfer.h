#pragma once

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "platform/HttpTransport.h"
#include "platform/posix/HttpUrl.h"

namespace sarnevo::platform::posix {

/// Takes what a transfer brings, on the thread that runs it.
class CurlSink {
 public:
  /// One line of a reply's head, its end included. False refuses the reply.
  virtual bool OnHeaderLine(std::string_view line) noexcept = 0;
  /// A piece of the body, at most CURL_MAX_WRITE_SIZE bytes. False: not now, give it again after Resume.
  virtual bool OnBody(std::string_view piece) noexcept = 0;

 protected:
  ~CurlSink() = default;
};

/// A request on a connection of its own, moved on by its owner's thread: run, wait, run again. The settings
/// make libcurl a plain client that leaves the process alone.
class CurlTransfer {
 public:
  CurlTransfer() = default;
  ~CurlTransfer() { Release(); }
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Gets what is needed. False when memory or descriptors are short.
  bool Prepare(const HttpSettings& settings, std::string_view method, CurlSink& sink);
  /// Begins a request, in place of the one before. False as above.
  bool Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials);

  /// Does what can be done without waiting. Nothing while the request goes on, else how it ended.
  std::optional<HttpError> Run() noexcept;
  /// Waits until Run has something to do, for up to @p timeout, or until Wake. True when bytes came, or went,
  /// or the connection stands.
  bool Wait(Milliseconds timeout) noexcept;
  /// Gives the sink what it has put off. Calls it.
  void Resume() noexcept;
  /// Status code of the reply whose head is coming in.
  std::uint32_t Status() const noexcept;

  /// Ends the wait under way, or else the next. Any thread, while the object lives.
  void Wake() noexcept;
  /// Closes the connection and gives everything back. Prepare may follow.
  void Release() noexcept;

 private:
  struct EasyDeleter {
    void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  };
  struct MultiDeleter {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
  };
  struct ListDeleter {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
  };

  bool PrepareHeaders();
  bool PrepareHandles();

  std::unique_ptr<curl_slist, ListDeleter> headers_;
  std::unique_ptr<CURL, EasyDeleter> easy_;
  // Keeps Wake off a multi_ that goes away: written by the owner under the lock, read by the owner without.
  std::mutex wakeLock_;
  std::unique_ptr<CURLM, MultiDeleter> multi_;
};

}  // namespace sarnevo::platform::posix
