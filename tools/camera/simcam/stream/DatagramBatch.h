#pragma once

#include <netinet/in.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace simcam {

/// Some datagrams to one client that leave in as few system calls as the kernel allows: as one that it cuts
/// into segments where their sizes permit and it knows how, else as one call with many messages. The client
/// sees the same datagrams either way. Made on the stack for each use.
class DatagramBatch {
 public:
  static constexpr std::size_t kHeaderBytes = 12;  // of RTP
  static constexpr std::size_t kCapacity = 32;

  /// Adds a datagram, at most kCapacity; the payload must live until Send. Gives the place for its header.
  std::uint8_t* Add(std::span<const std::uint8_t> payload);

  /// Sends all; gives the number of errors. A client that went away makes one send on a socket fail, and the
  /// rest goes out all the same.
  unsigned Send(int socket, const sockaddr_in& to);

 private:
  std::size_t SizeOf(std::size_t index) const { return kHeaderBytes + pieces_[2 * index + 1].iov_len; }
  bool Uniform() const;
  bool SendSegmented(int socket, const sockaddr_in& to);
  unsigned SendMessages(int socket, const sockaddr_in& to);

  std::array<std::array<std::uint8_t, kHeaderBytes>, kCapacity> headers_;
  std::array<iovec, 2 * kCapacity> pieces_;  // header and payload of each datagram in turn
  std::size_t count_ = 0;
};

}  // namespace simcam
