#include "web/Stream.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/buffer.hpp>

#include <algorithm>

namespace kolvex_console {

using boost::system::error_code;

namespace {

/// Bytes in one write, but for the last unit of it.
constexpr std::size_t kWrite = 128 * 1024;
/// The kernel's buffer: what is in there is old when it arrives, so it is short. Still two large pictures.
constexpr int kSendBuffer = 192 * 1024;
/// Room is reported when less than this waits in the kernel.
constexpr int kLowWater = 32 * 1024;

/// The buffers of a write; the kernel takes so many at a time.
struct Vector {
  std::array<boost::asio::const_buffer, 48> buffers;
  std::size_t count = 0;

  /// Adds @p size bytes at @p data without the first @p skip, which is reduced by what it has left out.
  void Add(const void* data, std::size_t size, std::size_t& skip) {
    const std::size_t left = std::min(skip, size);
    skip -= left;
    if (size > left && count < buffers.size()) {
      buffers[count++] = boost::asio::buffer(static_cast<const char*>(data) + left, size - left);
    }
  }

  // What Asio wants of a sequence.
  const boost::asio::const_buffer* begin() const { return buffers.data(); }
  const boost::asio::const_buffer* end() const { return buffers.data() + count; }
};

}  // namespace

Stream::Stream(Server& server, boost::asio::ip::tcp::socket socket, std::string head,
               std::shared_ptr<Outlet> outlet)
    : server_(server),
      socket_(std::move(socket)),
      outlet_(std::move(outlet)),
      progress_(std::chrono::steady_clock::now()) {
  gathered_ = head.size();
  units_.push_back({.head = std::move(head), .body = {}, .memory = {}, .tail = {}});
  const int native = socket_.native_handle();
  setsockopt(native, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  setsockopt(native, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kLowWater, sizeof kLowWater);
  error_code ignored;
  socket_.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
  socket_.non_blocking(true, ignored);
}

Stream::~Stream() { --server_.seats_; }

void Stream::Begin() {
  WatchForEnd();
  Pump();
}

void Stream::Pump() {
  while (!waits_ && !ended_) {
    Gather();
    if (units_.empty()) {
      if (!outlet_ || outlet_->HasEnded()) {
        End();
      }
      return;
    }
    if (!Write() && !ended_) {
      WaitForRoom();
    }
  }
}

void Stream::Gather() {
  Unit unit;
  while (outlet_ && gathered_ < kWrite && outlet_->Next(unit)) {
    gathered_ += unit.Size();
    units_.push_back(std::move(unit));
    unit = {};
  }
}

bool Stream::Write() {
  Vector vector;
  std::size_t skip = sent_;
  for (const Unit& unit : units_) {
    vector.Add(unit.head.data(), unit.head.size(), skip);
    vector.Add(unit.body.data(), unit.body.size(), skip);
    vector.Add(unit.tail.data(), unit.tail.size(), skip);
  }
  error_code error;
  const std::size_t sent = socket_.write_some(vector, error);
  if (error && error != boost::asio::error::would_block && error != boost::asio::error::interrupted) {
    End();
    return false;
  }
  if (sent != 0) {
    progress_ = std::chrono::steady_clock::now();
    Consume(sent);
  }
  return !error;
}

void Stream::Consume(std::size_t sent) {
  gathered_ -= sent;
  sent_ += sent;
  while (!units_.empty() && sent_ >= units_.front().Size()) {
    sent_ -= units_.front().Size();
    units_.pop_front();
  }
}

void Stream::WaitForRoom() {
  // What has begun must be finished. All else is newer when there is room again.
  for (std::size_t i = sent_ == 0 ? 0 : 1; i < units_.size();) {
    if (units_[i].key < 0) {
      ++i;
      continue;
    }
    outlet_->PutBack(units_[i]);
    gathered_ -= units_[i].Size();
    units_.erase(units_.begin() + static_cast<std::ptrdiff_t>(i));
  }
  waits_ = true;
  socket_.async_wait(boost::asio::ip::tcp::socket::wait_write,
                     [self = shared_from_this()](const error_code& error) {
                       self->waits_ = false;
                       if (error) {
                         self->End();
                       } else {
                         self->Pump();
                       }
                     });
}

void Stream::WatchForEnd() {
  // A viewer has nothing to say; the read is how its leaving is heard of.
  socket_.async_read_some(boost::asio::buffer(input_),
                          [self = shared_from_this()](const error_code& error, std::size_t) {
                            if (error) {
                              self->End();
                            } else {
                              self->WatchForEnd();
                            }
                          });
}

void Stream::EndIfStalled(std::chrono::steady_clock::time_point now) {
  if (waits_ && now - progress_ > server_.options_.limits.stall) {
    End();
  }
}

void Stream::End() {
  if (!ended_) {
    ended_ = true;
    outlet_.reset();
    units_.clear();
    error_code ignored;
    socket_.shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    server_.streams_.erase(shared_from_this());
    server_.streamCount_ = server_.streams_.size();
  }
}

}  // namespace kolvex_console
