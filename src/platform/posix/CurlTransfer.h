#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "platform/posix/CurlHandles.h"
#include "platform/posix/HttpTransfer.h"

namespace sarnevo::platform::posix {

/// A request with all that libcurl knows of HTTP.
class CurlTransfer final : public HttpTransfer {
 public:
  CurlTransfer() = default;
  ~CurlTransfer() = default;
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Makes ready on @p handles, which may have served other transfers, for requests to come. False when memory is
  /// short, or @p handles null.
  bool Prepare(std::unique_ptr<CurlHandles> handles, std::string_view method, HttpSink& sink);
  bool IsPrepared() const noexcept { return handles_ != nullptr; }

  bool Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) override;
  std::optional<HttpError> Run() noexcept override;
  bool Wait(Milliseconds timeout) noexcept override;
  std::uint32_t Status() const noexcept override;
  void Wake() noexcept override;

  /// Gives the sink what it has put off. Calls it.
  void Resume() noexcept;
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
