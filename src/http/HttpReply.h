#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "http/HttpError.h"

namespace Web {

/// The reply to one request (RFC 9112), taken in as it comes: the head, then the body as a plain one.
///
/// It reads only the header lines that say where the body ends, whether the connection stays, and where a redirect leads.
/// So what old cameras write in others does no harm: lines that end without a carriage return, folded lines, header lines
/// without a colon, a status line in lower case or without a reason, the same length twice. A length that can't be
/// read, or two that differ, make the reply unusable (RFC 9112, 6.3).
///
/// Uses no socket, no clock and no lock. One thread at a time.
class HttpReply {
 public:
  /// Most bytes of lines in a row, from the status line to the body or from chunk to chunk.
  static constexpr std::size_t kMaxHeadBytes = 256 * 1024;

  /// @param toHead  the reply to a HEAD request, which has no body whatever its head says
  explicit HttpReply(bool toHead = false) noexcept : toHead_(toHead) {}

  /// Takes the next bytes. Anything but None makes the reply unusable from there on. Throws bad_alloc.
  HttpError Take(std::span<const std::uint8_t> bytes);
  /// Takes the connection's end, which also ends a body without a length. ConnectionBroken when the reply isn't whole.
  HttpError TakeEnd() noexcept;

  /// Something came, however little.
  bool HasBegun() const noexcept { return lineBytes_ > 0 || HasHead(); }
  /// The head of the final reply is there; what informational replies (RFC 9110, 15.2) say is forgotten.
  bool HasHead() const noexcept { return phase_ > Phase::Header; }
  bool IsWhole() const noexcept { return phase_ == Phase::Whole; }
  /// The whole reply leaves the connection fit for another request: nothing came after it, and the server keeps it.
  bool LeavesOpen() const noexcept;

  std::uint32_t Status() const noexcept { return head_.status; }
  std::optional<std::uint64_t> ContentLength() const noexcept { return head_.length; }
  /// Where the reply redirects the client to (RFC 9110, 15.4); empty when it doesn't.
  std::string_view Redirect() const noexcept;

  /// What has come of the body and wasn't consumed yet.
  std::span<const std::uint8_t> Body() const noexcept { return std::span(body_).subspan(consumed_); }
  void Consume(std::size_t count) noexcept;

 private:
  // In the order in which they come.
  enum class Phase : std::uint8_t { StatusLine, Header, Data, ChunkSize, ChunkEnd, Trailer, Whole };
  struct Head {
    std::uint32_t status = 0;
    std::optional<std::uint64_t> length;
    std::string location;
    bool isCoded = false;  // whatever the coding
    bool isChunked = false;
    bool isOld = false;  // HTTP/1.0, which closes the connection unless it says that it keeps it
    bool saysKeep = false;
    bool saysClose = false;
  };

  HttpError TakeLinePart(std::string_view& rest);
  void TakeData(std::string_view& rest);
  HttpError TakeLine(std::string_view line);
  HttpError TakeStatusLine(std::string_view line);
  HttpError TakeHeaderLine(std::string_view line);
  HttpError TakeHeader(std::string_view header);
  void TakeHeadEnd() noexcept;
  HttpError TakeChunkSize(std::string_view line);

  bool toHead_;
  Phase phase_ = Phase::StatusLine;
  bool surplus_ = false;       // bytes came that belong to nothing that was asked
  std::size_t lineBytes_ = 0;  // of lines in a row
  std::string line_;           // as far as it has come
  std::string header_;         // unfolded; the next line may continue it
  std::uint64_t left_ = 0;     // of the body or chunk under way
  Head head_;
  std::vector<std::uint8_t> body_;
  std::size_t consumed_ = 0;  // of body_
};

}  // namespace Web
