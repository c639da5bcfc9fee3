#include "protocols/BurstPace.h"

namespace sarnevo {

void BurstPace::Begin(Nanoseconds now, u32 bytes) noexcept {
  began_ = now;
  count_ = 0;
  bytes_ = 0;
  countAtSleep_ = 0;
  lookedAt_ = Nanoseconds{0};
  Add(bytes);
}

void BurstPace::Add(u32 bytes) noexcept {
  ++count_;
  bytes_ += bytes;
}

std::optional<BurstPace::Nanoseconds> BurstPace::SleepUntil(Nanoseconds now) noexcept {
  // The last sleep brought nothing: whatever this is, it isn't the pace of the last bursts.
  saves_ = saves_ && count_ != countAtSleep_;
  if (!saves_ || !IsUnderWay()) {
    return std::nullopt;
  }
  const Nanoseconds elapsed = now - began_;
  if (countAtSleep_ != 0) {
    lookedAt_ = elapsed;
    countThen_ = count_;
    // They come far faster than before: the old pace would fill the buffer, and miss the end.
    if (elapsed / count_ < gap_ / 2) {
      gap_ = elapsed / count_;
    }
  }
  const Nanoseconds wanted = count_ < Expected() ? Left(elapsed) : Overdue();
  const bool isPaceKnown = count_ > 1 && elapsed >= gap_ * (count_ - 1) / 2;
  const Nanoseconds longest = isPaceKnown ? Longest() : std::min(Longest(), lineGap_ * quarterCount_ * 3);
  const bool isShared = wanted > longest;
  const Nanoseconds until = isShared ? Shared(now, longest) : now + std::min(wanted, longest);
  if (until < now + Least()) {
    return std::nullopt;
  }
  countAtSleep_ = count_;
  return until;
}

// Sleeps that needn't end at a certain moment end together with those of other streams: a processor that wakes up once
// for several of them has less to do.
BurstPace::Nanoseconds BurstPace::Shared(Nanoseconds now, Nanoseconds longest) noexcept {
  const Nanoseconds latest = now + longest;
  const Nanoseconds shared = latest - latest % kBeat;
  return shared >= now + longest / 2 ? shared : latest;
}

// Until the last datagram is due: by the time since the first one, as far as that goes with how many are still missing.
BurstPace::Nanoseconds BurstPace::Left(Nanoseconds elapsed) const noexcept {
  const Nanoseconds missing = gap_ * (Expected() - count_);
  return std::clamp(gap_ * (Expected() - 1) - elapsed, missing - gap_, missing);
}

// A burst that is longer than expected may end with every datagram; the more there were, the more there will be.
BurstPace::Nanoseconds BurstPace::Overdue() const noexcept { return gap_ * (count_ - Expected()) / 2; }

void BurstPace::End(Nanoseconds now, bool waitedFor) noexcept {
  if (waitedFor) {
    Learn((now - began_) / std::max<std::int64_t>(count_ - 1, 1));
  } else if (lookedAt_ > Nanoseconds{0}) {
    Learn(lookedAt_ * 2 / (2 * countThen_ - 1));  // the next one was on its way, halfway on average
  }
  lastCounts_ = {count_, lastCounts_[0]};
  quarterCount_ = quarterBytes_ * count_ / (bytes_ + count_ * kOverheadBytes);
  lineGap_ = kByteTime * (bytes_ / count_ + kWireBytes);
  saves_ = gap_ >= kLeastGap && gap_ * (Expected() - 1) >= Least() && Longest() >= Least();
  count_ = 0;
}

// A single burst that was disturbed on its way isn't believed at once; but where nothing is slept, nothing is at stake.
void BurstPace::Learn(Nanoseconds gap) noexcept { gap_ = saves_ ? (gap_ + gap) / 2 : gap; }

}  // namespace sarnevo
