#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "kolvex/Types.h"
#include "platform/Time.h"

namespace sarnevo {

/// How long a receive thread may sleep while a burst of datagrams comes in, learned from the last bursts.
///
/// Cameras send the packets of a frame some 10 to 150 us apart. A thread that waits for each of them falls asleep and
/// is woken as often, which costs several times what it does with a packet. Sleeping a moment lets them gather in
/// the socket. The moments end when the last datagram is due, so that a whole frame is hardly later than without;
/// none is longer than 1 ms, or than a quarter of the socket's buffer takes to fill at the pace seen lately. Until a
/// burst has shown that it is as slow as the last ones, none is longer than three quarters take at 1 Gbit/s either.
/// Datagrams that follow each other faster than a thread falls asleep are waited for: that costs less than a timer.
///
/// Uses no clock: `now` is a time of any steady clock. One thread.
class BurstPace {
 public:
  using Nanoseconds = platform::Nanoseconds;

  static constexpr Nanoseconds kLongest{1'000'000};
  static constexpr Nanoseconds kShortest{60'000};  ///< less isn't worth the call
  static constexpr Nanoseconds kLeastGap{16'000};  ///< between datagrams, for a sleep to cost less than waits

  /// @param bufferBytes  size of the socket's receive buffer
  explicit BurstPace(u32 bufferBytes) noexcept : quarterBytes_(bufferBytes / 4) {}

  /// A burst is under way: Begin was called, and End wasn't.
  bool IsUnderWay() const noexcept { return count_ != 0; }
  /// Whether SleepUntil may give anything in this burst, so that it is worth looking what is there before waiting.
  bool Saves() const noexcept { return saves_; }

  /// The first datagram of a burst of more than one came.
  void Begin(Nanoseconds now, u32 bytes) noexcept;
  /// A further one.
  void Add(u32 bytes) noexcept;
  /// Nothing more is there at present. The time to sleep until before the next look; nothing: wait for a datagram.
  std::optional<Nanoseconds> SleepUntil(Nanoseconds now) noexcept;
  /// The burst is whole.
  /// @param waitedFor  the last datagram was waited for, so that it came now and no earlier
  void End(Nanoseconds now, bool waitedFor) noexcept;

 private:
  // Of a datagram in the socket's buffer, beside its bytes: what the system adds to small ones weighs most. The system
  // grants twice what was asked for, so that a buffer that is full by this reckoning still has room.
  static constexpr u32 kOverheadBytes = 512;
  // UDP, IPv4 and Ethernet with its preamble and gap; and how long a byte takes on 1 Gbit/s.
  static constexpr u32 kWireBytes = 66;
  static constexpr Nanoseconds kByteTime{8};
  static constexpr Nanoseconds kBeat{250'000};

  // The smaller of the last two: a single large burst, such as a key frame between small ones, mustn't make those
  // after it late. One that is larger than expected is waited for.
  std::int64_t Expected() const noexcept { return std::min(lastCounts_[0], lastCounts_[1]); }
  Nanoseconds Longest() const noexcept { return std::min(kLongest, gap_ * quarterCount_); }
  // Of a sleep that is worth its call: it saves a wait for a second datagram.
  Nanoseconds Least() const noexcept { return std::max(kShortest, 2 * gap_); }
  Nanoseconds Left(Nanoseconds elapsed) const noexcept;
  Nanoseconds Overdue() const noexcept;
  static Nanoseconds Shared(Nanoseconds now, Nanoseconds longest) noexcept;
  void Learn(Nanoseconds gap) noexcept;

  const std::int64_t quarterBytes_;

  // The burst under way.
  Nanoseconds began_{0};
  std::int64_t count_ = 0;         // datagrams so far
  std::int64_t bytes_ = 0;         // of them
  std::int64_t countAtSleep_ = 0;  // 0: no sleep yet
  Nanoseconds lookedAt_{0};  // the last look after a sleep, since the first datagram, and their number then
  std::int64_t countThen_ = 0;

  // The bursts before.
  bool saves_ = false;
  Nanoseconds gap_{0};                        // between two datagrams
  Nanoseconds lineGap_{0};                    // the same at 1 Gbit/s
  std::int64_t quarterCount_ = 0;             // datagrams of that kind that fill a quarter of the buffer
  std::array<std::int64_t, 2> lastCounts_{};  // datagrams of the last two
};

}  // namespace sarnevo
