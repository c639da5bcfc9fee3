#include "simcam/net/Connection.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>

namespace simcam {

namespace {

constexpr Microseconds kPiecePace{5'000};
// What comes after a reply of RTSP is junk before the next one: the dialogue goes on or not, whichever is faster. So a
// driver on a busy machine gets a moment.
constexpr Microseconds kEndlessStart{100'000};
constexpr Microseconds kEndlessPace{2'000};
constexpr std::size_t kMaxUnsent = 65'536;  // bytes that an endless reply lets pile up

std::string Noise(std::size_t size) {
  std::minstd_rand dice(static_cast<unsigned>(size) + 1);
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&dice] { return static_cast<char>(dice() >> 8U); });
  return bytes;
}

}  // namespace

Connection::Connection(EventLoop& loop, int socket, const sockaddr_in& peer,
                       std::function<void(Connection*)> ended)
    : loop_(loop),
      stream_(bufferevent_socket_new(loop.base(), socket, BEV_OPT_CLOSE_ON_FREE)),
      peer_(peer),
      ended_(std::move(ended)),
      pieceTimer_(loop, [this] { SendPiece(); }) {
  bufferevent_setcb(
      stream_, [](bufferevent*, void* self) { static_cast<Connection*>(self)->OnReadable(); },
      [](bufferevent*, void* context) {
        auto* self = static_cast<Connection*>(context);
        if (self->resetWhenSent_) {
          self->Reset();
        } else if (self->closeWhenSent_ && self->waiting_.empty()) {
          self->Close();
        }
      },
      [](bufferevent*, short, void* self) { static_cast<Connection*>(self)->Close(); }, this);
  bufferevent_enable(stream_, EV_READ | EV_WRITE);
}

Connection::~Connection() {
  if (stream_ != nullptr) {
    bufferevent_free(stream_);
  }
}

void Connection::OnReadable() {
  std::array<char, 4096> buffer;
  while (stream_ != nullptr) {
    const std::size_t count = bufferevent_read(stream_, buffer.data(), buffer.size());
    if (count == 0) {
      return;
    }
    if (!mute_ && !closeWhenSent_ && !resetWhenSent_) {
      handler_->OnBytes({buffer.data(), count});
    }
  }
}

void Connection::Reply(std::string bytes, const std::optional<ReplyFault>& fault, bool closeAfter) {
  if (stream_ == nullptr || mute_) {
    return;
  }
  closeWhenSent_ = closeWhenSent_ || closeAfter;
  if (!waiting_.empty()) {
    waiting_ += bytes;
    return;
  }
  const std::size_t offset = fault ? fault->OffsetIn(bytes) : 0;
  switch (fault ? fault->kind : ReplyFault::Kind::None) {
    case ReplyFault::Kind::Stall:
    case ReplyFault::Kind::Gone:
    case ReplyFault::Kind::Turn:
      mute_ = true;
      closeWhenSent_ = false;
      Write(std::string_view(bytes).substr(0, offset));
      break;
    case ReplyFault::Kind::Delay:
      StartPieces(std::move(bytes), SIZE_MAX, Milliseconds(fault->value));
      break;
    case ReplyFault::Kind::Drip:
      StartPieces(bytes.substr(offset), 1, Milliseconds(fault->value));
      Write(std::string_view(bytes).substr(0, offset));
      break;
    case ReplyFault::Kind::Pieces:
      StartPieces(std::move(bytes), fault->value, kPiecePace);
      break;
    case ReplyFault::Kind::Cut:
      bytes.resize(std::min<std::size_t>(bytes.size(), std::max<std::size_t>(offset, fault->value)));
      closeWhenSent_ = true;
      Write(bytes);
      break;
    case ReplyFault::Kind::Reset:
      bytes.resize(offset);
      resetWhenSent_ = true;
      Write(bytes);
      break;
    case ReplyFault::Kind::Garbage:
      closeWhenSent_ = true;
      Write(bytes.substr(0, offset) + Noise(fault->value));
      break;
    case ReplyFault::Kind::Oversize:
      if (fault->place != ReplyFault::Place::Body) {
        bytes.insert(offset, fault->value, 'x');
      }
      Write(bytes);
      break;
    case ReplyFault::Kind::Endless:
      endless_ = true;
      closeWhenSent_ = false;
      Write(bytes);
      pieceTimer_.StartOnce(kEndlessStart);
      break;
    default:
      Write(bytes);
      break;
  }
}

void Connection::StartPieces(std::string bytes, std::size_t size, Microseconds pace) {
  waiting_ = std::move(bytes);
  pieceSize_ = size;
  pace_ = pace;
  pieceTimer_.StartOnce(pace);
}

void Connection::SendPiece() {
  if (endless_) {
    if (unsent() < kMaxUnsent) {
      Write(std::string(4096, 'x'));
    }
    pieceTimer_.StartOnce(kEndlessPace);
    return;
  }
  const std::size_t count = std::min(pieceSize_, waiting_.size());
  const std::string piece = waiting_.substr(0, count);
  waiting_.erase(0, count);
  if (!waiting_.empty()) {
    pieceTimer_.StartOnce(pace_);
  }
  Write(piece);
}

void Connection::Write(std::string_view bytes) {
  if (bytes.empty()) {
    if (resetWhenSent_) {
      Reset();
    } else if (closeWhenSent_ && waiting_.empty()) {
      Close();
    }
    return;
  }
  bufferevent_write(stream_, bytes.data(), bytes.size());
}

std::size_t Connection::unsent() const { return evbuffer_get_length(bufferevent_get_output(stream_)); }

void Connection::Reset() {
  const linger now{1, 0};  // close sends a reset
  setsockopt(bufferevent_getfd(stream_), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  Close();
}

void Connection::Close() {
  if (stream_ == nullptr) {
    return;
  }
  pieceTimer_.Stop();
  bufferevent_free(std::exchange(stream_, nullptr));
  ended_(this);
}

}  // namespace simcam
