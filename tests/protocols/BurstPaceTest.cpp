#include "protocols/BurstPace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using Nanoseconds = BurstPace::Nanoseconds;

// What a receive thread does, in a time of its own: a thread that is woken needs 30 us, a datagram costs it 1 us.
class Reception {
 public:
  int looks = 0;  // without waiting
  int waits = 0;  // for a datagram
  int sleeps = 0;
  Nanoseconds late{0};  // the last datagram of the last burst, beyond the time that waking up takes
  Nanoseconds longest{0};
  std::int64_t mostWaiting = 0;

  explicit Reception(u32 bufferBytes = 131'070) : pace_(bufferBytes) {}

  /// @param arrivals  of one burst; the thread has nothing else to do before the first
  void Burst(const std::vector<Nanoseconds>& arrivals, u32 bytes, bool marked = true) {
    bool waiting = true;
    for (std::size_t i = 0; i < arrivals.size();) {
      if (arrivals[i] > now_) {
        if (waiting) {
          ++waits;
          now_ = arrivals[i] + kWakeUp;
        } else {
          ++looks;
          waiting = !Sleep(arrivals, i);
          continue;
        }
      }
      const bool more = !marked || i + 1 < arrivals.size();
      now_ += 1us;
      ++i;
      if (pace_.IsUnderWay()) {
        pace_.Add(bytes);
        if (!more) {
          pace_.End(now_, waiting);
        }
      } else if (more) {
        pace_.Begin(now_, bytes);
      }
      waiting = !more || !pace_.Saves();
    }
    late = now_ - arrivals.back() - kWakeUp;
  }

  void ForgetCounts() { looks = waits = sleeps = 0, mostWaiting = 0, longest = 0ns; }

 private:
  static constexpr Nanoseconds kWakeUp = 30us;

  bool Sleep(const std::vector<Nanoseconds>& arrivals, std::size_t next) {
    const auto until = pace_.SleepUntil(now_);
    if (!until) {
      return false;
    }
    ++sleeps;
    longest = std::max(longest, *until - now_);
    now_ = *until + kWakeUp;
    const auto there = std::upper_bound(arrivals.begin(), arrivals.end(), now_) - arrivals.begin();
    mostWaiting = std::max<std::int64_t>(mostWaiting, there - static_cast<std::int64_t>(next));
    return true;
  }

  BurstPace pace_;
  Nanoseconds now_{0};
};

// A burst: so many datagrams at a distance.
std::vector<Nanoseconds> Arrivals(Nanoseconds begin, int datagrams, Nanoseconds distance) {
  std::vector<Nanoseconds> arrivals;
  for (int i = 0; i < datagrams; ++i) {
    arrivals.push_back(begin + i * distance);
  }
  return arrivals;
}

TEST(BurstPace, SleepsThroughAFrameAndWakesUpForItsEnd) {
  const struct {
    const char* name;
    int datagrams;
    Nanoseconds distance;
    u32 bytes;
    int mostWakeUps;           // in a frame
    Nanoseconds latest;        // the end of a frame
    std::int64_t mostWaiting;  // datagrams in the socket's buffer
  } kRows[] = {
      {"100 Mbit/s", 29, 120us, 1412, 6, 40us, 9},
      {"a little faster", 29, 80us, 1412, 5, 40us, 13},
      {"the fastest that is slept through", 29, 18us, 1412, 4, 40us, 19},
      {"large frames, as fast", 179, 18us, 1412, 14, 40us, 20},
      {"large frames, slower", 179, 80us, 1412, 16, 40us, 13},
      {"small datagrams fill the buffer sooner than their bytes say", 200, 18us, 100, 6, 40us, 54},
      {"large datagrams", 10, 100us, 4000, 4, 40us, 6},
      {"a short frame", 6, 80us, 1412, 2, 90us, 5},
      {"slow", 29, 300us, 1412, 13, 40us, 4},
      // Nothing to win: every datagram is waited for, and nobody looks before.
      {"far from each other", 29, 600us, 1412, 29, 1us, 0},
      {"larger than a quarter of the buffer", 29, 80us, 40'000, 29, 1us, 0},
      {"all at once", 29, 0us, 1412, 1, 29us, 0},
      {"1 Gbit/s: hardly asleep between two", 179, 12us, 1412, 60, 31us, 0},
      {"two", 2, 40us, 1412, 2, 1us, 0},
      {"one", 1, 0us, 1412, 1, 1us, 0},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    Reception reception;
    for (int frame = 0; frame < 60; ++frame) {
      if (frame == 10) {
        reception.ForgetCounts();
      }
      reception.Burst(Arrivals(1s + 7us + frame * 40ms, row.datagrams, row.distance), row.bytes);
      if (frame >= 10) {
        EXPECT_LE(reception.late, row.latest) << "frame " << frame;
      }
    }
    EXPECT_LE(reception.waits + reception.sleeps, 50 * row.mostWakeUps);
    EXPECT_LE(reception.longest, 1ms);
    EXPECT_LE(reception.mostWaiting, row.mostWaiting);
    EXPECT_EQ(reception.looks != 0, row.mostWaiting != 0) << reception.looks;
  }
}

// A stream is as always, and then one frame is different.
TEST(BurstPace, TakesAFrameThatIsUnlikeTheOthers) {
  const struct {
    const char* name;
    int datagrams;
    Nanoseconds distance;
    int mostWakeUps;
    Nanoseconds latest;
    std::int64_t mostWaiting;
    Nanoseconds nextLatest;  // the frame after it, which is as always again
  } kRows[] = {
      {"a key frame", 100, 100us, 26, 700us, 12, 40us},
      {"a little longer", 13, 100us, 6, 40us, 9, 40us},
      {"a little shorter", 9, 100us, 4, 140us, 9, 60us},
      {"far faster", 100, 10us, 10, 150us, 60, 100us},
      {"as fast as 1 Gbit/s", 179, 12us, 20, 150us, 53, 100us},
      {"far slower", 12, 2ms, 13, 1us, 0, 40us},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    Reception reception;
    Nanoseconds begin = 1s + 7us;
    for (int frame = 0; frame < 20; ++frame, begin += 40ms) {
      reception.Burst(Arrivals(begin, 10, 100us), 1412);
    }
    reception.ForgetCounts();
    reception.Burst(Arrivals(begin, row.datagrams, row.distance), 1412);
    EXPECT_LE(reception.late, row.latest);
    EXPECT_LE(reception.waits + reception.sleeps, row.mostWakeUps);
    EXPECT_LE(reception.mostWaiting, row.mostWaiting);
    reception.Burst(Arrivals(begin + 40ms, 10, 100us), 1412);
    EXPECT_LE(reception.late, row.nextLatest);
  }
}

TEST(BurstPace, NeverSleepsInAStreamWithoutFrameEnds) {
  Reception reception;
  reception.Burst(Arrivals(1s + 7us, 1000, 80us), 1412, false);
  EXPECT_EQ(reception.looks + reception.sleeps, 0);
}

}  // namespace
}  // namespace sarnevo
