#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <utility>

#include "e2e/Plan.h"

namespace kolvex_bench {

/// Where one camera sends its stream.
struct StreamTarget {
  std::atomic<bool> playing{false};
  sockaddr_in to{};  // written before playing is set
};

/// What the sender has put on the wire for one receiver.
struct SentCounts {
  std::atomic<std::uint64_t> packets{0};
  std::atomic<std::uint64_t> frames{0};
};

/// What a receiver asks of the allocator and of the system's sockets, as long as it is told to count.
struct CallCounts {
  std::atomic<bool> on{false};
  std::atomic<std::uint64_t> allocations{0};  ///< malloc, calloc, realloc, aligned_alloc, and so operator new
  std::atomic<std::uint64_t> receives{0};     ///< recv, recvfrom, recvmsg, recvmmsg
  std::atomic<std::uint64_t> polls{0};        ///< poll, ppoll, select, epoll_wait
};

/// What a receiver has at the end of its road.
struct Arrivals {
  static constexpr std::uint32_t kKept = 1U << 16;

  std::atomic<std::uint64_t> frames{0};
  /// Nanoseconds from the moment before a frame's last packet was handed to the kernel to the receiver's end of
  /// the road, of the last kKept frames.
  std::array<std::atomic<std::uint32_t>, kKept> delays{};
  std::atomic<std::uint32_t> count{0};

  void Add(std::int64_t nanoseconds) {
    const std::uint32_t at = count.fetch_add(1, std::memory_order_relaxed);
    delays[at % kKept].store(static_cast<std::uint32_t>(nanoseconds), std::memory_order_relaxed);
  }
};

/// How late the sender was with its packets.
struct Lateness {
  static constexpr std::size_t kMostUs = 20'000;

  std::array<std::atomic<std::uint32_t>, kMostUs + 1> packets{};  ///< by microseconds

  void Add(std::int64_t nanoseconds) {
    const auto us = static_cast<std::size_t>(nanoseconds > 0 ? nanoseconds / 1000 : 0);
    packets[us < kMostUs ? us : kMostUs].fetch_add(1, std::memory_order_relaxed);
  }
  /// Microseconds that this share of the packets stays under; starts to count anew.
  std::pair<double, double> TakeP99AndMost();
};

/// One receiver's share of the board.
struct Place {
  std::array<StreamTarget, kMaxStreams> targets{};
  SentCounts sent;
  Arrivals arrivals;
  CallCounts calls;
  std::atomic<std::uint64_t> requests{0};  ///< CGI requests that its cameras have answered
};

/// What sender, receivers and the measuring process tell each other, in memory that they share. Every counter
/// is read by itself, so that relaxed order is enough for it.
struct Board {
  static constexpr int kPlaces = 5;
  static constexpr int kNobody = -1;

  /// The receiver whose streams are sent at present. The others' cameras are silent.
  std::atomic<int> active{kNobody};
  /// The cameras are gone: no streams, no connections, none accepted.
  std::atomic<bool> absent{false};
  /// The receiver leaves something out: the library's host gives no frames, so that a frame ends where it is whole
  /// inside the library; the bare receiver waits in the receive alone, without a poll in front of it.
  std::atomic<bool> refusing{false};
  Lateness lateness;                   ///< of paced packets
  std::atomic<std::uint64_t> late{0};  ///< frames that the sender left out since it couldn't keep pace
  std::array<Place, kPlaces> places{};
};

/// A board that the processes share which are forked from now on. Lives to the end of the process.
Board& SharedBoard();

}  // namespace kolvex_bench
