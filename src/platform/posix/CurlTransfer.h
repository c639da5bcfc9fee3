#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "platform/HttpTransport.h"
#include "platform/posix/CurlHandles.h"
#include "platform/posix/HttpUrl.h"

namespace sarnevo::platform::posix {

/// A request, moved on by its owner's thread: run, wait, run again.
class CurlTransfer {
 public:
  CurlTransfer() = default;
  ~CurlTransfer() = default;
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Makes ready on @p handles, which may have served other transfers. False when memory is short, or
  /// @p handles null.
  bool Prepare(std::unique_ptr<CurlHandles> handles, std::string_view method, CurlSink& sink);
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
  /// Ends the transfer and gives its handles away, for another one or to be deleted, which closes the
  /// connection. Null if it has none. Prepare may follow.
  std::unique_ptr<CurlHandles> Release() noexcept;

 private:
  // Keeps Wake off handles_ that go away: written by the owner under the lock, read by the owner without.
  std::mutex wakeLock_;
  std::unique_ptr<CurlHandles> handles_;
  bool looksUp_ = false;  // the owner's: the server is told by a name
};

}  // namespace sarnevo::platform::posix
