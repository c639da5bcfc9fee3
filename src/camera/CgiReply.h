#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "http/HttpRequest.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// The body of one reply as a text, with a fixed limit: a longer body is cut off there and not read on.
class CgiReply {
 public:
  /// Bytes of the buffer, the terminating zero included.
  static constexpr std::size_t kBufferBytes = 65'535;

  /// May throw bad_alloc.
  CgiReply() : buffer_(kBufferBytes, '\0') {}

  /// Reads one byte, then as much as is ready, until nothing is. False when a read failed; what the camera
  /// broke off behind a whole piece isn't told from its end.
  bool ReadWhatIsReady(Web::HttpRequest& request);
  /// Reads until the end or a failure; what came before it stands.
  void ReadToEnd(Web::HttpRequest& request);

  /// Up to the first zero byte.
  std::string_view Text() const noexcept { return buffer_.data(); }

 private:
  // One read of up to @p size bytes.
  bool Read(Web::HttpRequest& request, std::size_t size, u32& came);
  std::size_t Room() const noexcept { return kBufferBytes - 1 - count_; }

  std::vector<char> buffer_;
  std::size_t count_ = 0;
};

}  // namespace sarnevo
