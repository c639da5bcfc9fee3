#include "protocols/RtspReader.h"

#include <algorithm>

#include "platform/Clock.h"

namespace sarnevo {

using platform::Milliseconds;
using platform::ReceiveResult;
using platform::SocketError;

RtspReader::RtspReader(platform::Socket& socket, platform::Event& interrupted,
                       const ChannelTiming& times) noexcept
    : socket_(socket), interrupted_(interrupted), pieceTime_(times.rtspReceive), replyTime_(times.rtspReply) {}

void RtspReader::BeginReply() noexcept { replyEnd_ = platform::TimeAfter(replyTime_); }

bool RtspReader::ReadLine() noexcept {
  line_[0] = '\0';
  beganWithCr_ = false;
  char byte = 0;
  Next next = Take(byte);
  if (next != Next::Byte && next != Next::End) {
    return false;
  }
  beganWithCr_ = next == Next::Byte && byte == '\r';

  std::size_t stored = 0;
  for (std::size_t read = 1; next == Next::Byte && byte != '\n'; ++read) {
    if (byte != '\r' && stored < line_.size() - 1) {
      line_[stored++] = byte;
    }
    next = read < kMaxLineBytes ? Take(byte) : Next::Failed;
  }
  if (next == Next::Failed) {
    stored = 0;
  }
  line_[stored] = '\0';
  return next != Next::Failed;
}

bool RtspReader::ReadBody(std::size_t size, std::span<char> into) noexcept {
  for (std::size_t read = 0; read < size;) {
    if (begin_ == end_) {
      const Next next = Fill();
      if (next == Next::Failed || (next == Next::TimedOut && read == 0)) {
        return false;
      }
      if (next != Next::Byte) {
        return true;
      }
    }
    const std::size_t piece = std::min(size - read, end_ - begin_);
    const std::size_t kept = std::min(piece, into.size());
    std::copy_n(&buffer_[begin_], kept, into.begin());
    into = into.subspan(kept);
    begin_ += piece;
    read += piece;
  }
  return true;
}

RtspReader::Next RtspReader::Take(char& byte) noexcept {
  if (begin_ == end_) {
    const Next next = Fill();
    if (next != Next::Byte) {
      return next;
    }
  }
  byte = static_cast<char>(buffer_[begin_++]);
  return Next::Byte;
}

RtspReader::Next RtspReader::Fill() noexcept {
  begin_ = end_ = 0;
  const auto left = std::chrono::ceil<Milliseconds>(replyEnd_ - platform::MonotonicTime());
  if (left <= Milliseconds{0} || !socket_.SetReceiveTimeout(std::min(left, pieceTime_))) {
    return Next::Failed;
  }
  const ReceiveResult got = socket_.Receive(buffer_);
  // An interruption looks like the camera's closing, which may end a line; so ask.
  if (interrupted_.Wait(Milliseconds{0})) {
    return Next::Failed;
  }
  if (got.error == SocketError::None) {
    end_ = got.count;
    return got.count > 0 ? Next::Byte : Next::End;
  }
  return got.error == SocketError::NotYet ? Next::TimedOut : Next::Failed;
}

}  // namespace sarnevo
