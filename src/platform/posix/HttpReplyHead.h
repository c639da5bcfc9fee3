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
  /// Takes the next line, its end included. What isn't None makes the reply unusable. Throws bad_alloc.
  /// @param status  the status code of the head that the line belongs to
  HttpError TakeLine(std::string_view line, std::uint32_t status);

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
