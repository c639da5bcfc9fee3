#include "simcam/stream/DatagramBatch.h"

#include <linux/udp.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace simcam {

namespace {

// Cleared when the kernel turns out not to know segmentation.
std::atomic<bool> kernelSegments{true};

}  // namespace

std::uint8_t* DatagramBatch::Add(std::span<const std::uint8_t> payload) {
  std::uint8_t* const header = headers_[count_].data();
  pieces_[2 * count_] = {header, kHeaderBytes};
  pieces_[2 * count_ + 1] = {const_cast<std::uint8_t*>(payload.data()), payload.size()};
  ++count_;
  return header;
}

unsigned DatagramBatch::Send(int socket, const sockaddr_in& to) {
  if (count_ > 1 && Uniform() && kernelSegments.load(std::memory_order_relaxed)) {
    if (SendSegmented(socket, to)) {
      return 0;
    }
    if (errno == EINVAL || errno == EIO || errno == ENOPROTOOPT || errno == EOPNOTSUPP) {
      kernelSegments.store(false, std::memory_order_relaxed);
    }
  }
  return SendMessages(socket, to);
}

/// All of one size, but that the last may be shorter.
bool DatagramBatch::Uniform() const {
  for (std::size_t i = 1; i < count_; ++i) {
    if (i + 1 < count_ ? SizeOf(i) != SizeOf(0) : SizeOf(i) > SizeOf(0)) {
      return false;
    }
  }
  return true;
}

bool DatagramBatch::SendSegmented(int socket, const sockaddr_in& to) {
  alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(std::uint16_t))> control{};
  msghdr message{};
  message.msg_name = const_cast<sockaddr_in*>(&to);
  message.msg_namelen = sizeof to;
  message.msg_iov = pieces_.data();
  message.msg_iovlen = 2 * count_;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const segment = CMSG_FIRSTHDR(&message);
  segment->cmsg_level = IPPROTO_UDP;
  segment->cmsg_type = UDP_SEGMENT;
  segment->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
  const auto size = static_cast<std::uint16_t>(SizeOf(0));
  std::memcpy(CMSG_DATA(segment), &size, sizeof size);
  return sendmsg(socket, &message, MSG_NOSIGNAL) >= 0;
}

unsigned DatagramBatch::SendMessages(int socket, const sockaddr_in& to) {
  std::array<mmsghdr, kCapacity> messages{};
  for (std::size_t i = 0; i < count_; ++i) {
    messages[i].msg_hdr.msg_name = const_cast<sockaddr_in*>(&to);
    messages[i].msg_hdr.msg_namelen = sizeof to;
    messages[i].msg_hdr.msg_iov = &pieces_[2 * i];
    messages[i].msg_hdr.msg_iovlen = 2;
  }
  unsigned errors = 0;
  for (std::size_t done = 0; done < count_;) {
    const int sent =
        sendmmsg(socket, messages.data() + done, static_cast<unsigned>(count_ - done), MSG_NOSIGNAL);
    errors += sent < 0 ? 1 : 0;
    done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
  }
  return errors;
}

}  // namespace simcam
