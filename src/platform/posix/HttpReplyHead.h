#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/HttpTransport.h"

namespace sarnevo::platform::posix {

/// The head of one reply (RFC 9112, 2.1), gathered line by line.
class HttpReplyHead {
 public:
  /// @p line, its end included, is the empty one that ends a head.
  static bool IsEnd(std::string_view line) noexcept;

  /// Takes the next line, its end included. What isn't None makes the reply unusable. Throws bad_alloc.
  HttpError TakeLine(std::string_view line);
  /// Takes the empty line instead, with the status code of the head that it ends.
  HttpError TakeEnd(std::uint32_t status) noexcept;

  /// The head of the final reply is whole; lines that follow are trailers and not wanted.
  bool IsComplete() const noexcept { return complete_; }
  std::uint32_t Status() const noexcept { return status_; }
  std::optional<std::uint64_t> ContentLength() const noexcept { return contentLength_; }
  /// The whole head sends the client on to Location (RFC 9110, 15.4).
  bool IsRedirect() const noexcept;
  const std::string& Location() const noexcept { return location_; }

 private:
  bool complete_ = false;
  std::uint32_t status_ = 0;
  std::optional<std::uint64_t> contentLength_;
  std::string location_;
};

}  // namespace sarnevo::platform::posix
