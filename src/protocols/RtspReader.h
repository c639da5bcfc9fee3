#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "device/ChannelTiming.h"
#include "kolvex/Types.h"
#include "platform/Event.h"
#include "platform/Socket.h"

namespace sarnevo {

/// A text of up to 255 characters, zero-terminated.
using RtspText = std::array<char, 256>;

/// Reads the replies of an RTSP server from a connected socket, line by line, with a small buffer between:
/// one system call for each piece that comes. What a reply leaves unread is there for the next one.
class RtspReader {
 public:
  /// Longest line that is read, surplus included. A camera that sends one without end isn't worth waiting for.
  static constexpr std::size_t kMaxLineBytes = 65'536;

  /// @param socket       outlives the reader, which sets its receive time-out: ChannelTiming::rtspReceive for each
  ///                     piece, and no longer than the reply may still take.
  /// @param interrupted  when set, everything fails.
  RtspReader(platform::Socket& socket, platform::Event& interrupted, const ChannelTiming& times) noexcept;

  /// Forgets what is buffered; for a new connection.
  void Reset() noexcept { begin_ = end_ = 0; }
  /// The time that each later reply may take as a whole.
  void LimitReplies(platform::Milliseconds time) noexcept { replyTime_ = time; }
  /// A new reply begins, and with it the time that one may take.
  void BeginReply() noexcept;

  /// Reads up to and including the next LF. CR is dropped wherever it is. Of a longer line the first
  /// 255 characters count and the rest is dropped. The camera's closing, and a time-out after the first
  /// byte, end a line, which then counts. The text ends at a zero byte.
  /// @return false when not even a first byte came in time, on any other failure, and past the limits. A camera that
  ///         closes before the first byte gives an empty line.
  bool ReadLine() noexcept;
  /// The line that ReadLine read last, valid until the next.
  std::string_view Line() const noexcept { return line_.data(); }
  /// The last line began with CR, as a blank one does.
  bool LineBeganWithCr() const noexcept { return beganWithCr_; }

  /// Reads @p size bytes and stores what fits into @p into. Fails when nothing comes; a later time-out, and
  /// the camera's closing, end it with what came.
  bool ReadBody(std::size_t size, std::span<char> into) noexcept;

 private:
  enum class Next { Byte, End, TimedOut, Failed };
  Next Fill() noexcept;
  Next Take(char& byte) noexcept;

  platform::Socket& socket_;
  platform::Event& interrupted_;
  std::array<u8, 1024> buffer_{};
  std::size_t begin_ = 0;  // of what is buffered and not yet taken
  std::size_t end_ = 0;
  const platform::Milliseconds pieceTime_;
  platform::Milliseconds replyTime_;
  platform::Nanoseconds replyEnd_{0};  // of platform::MonotonicTime
  RtspText line_{};
  bool beganWithCr_ = false;
};

}  // namespace sarnevo
