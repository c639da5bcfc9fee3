#include "protocols/BurstPace.h"

#include <algorithm>

namespace sarnevo {

void BurstPace::Begin(Nanoseconds now, u32 bytes) noexcept {
  began_ = now;
  count_ = 0;
  weight_ = 0;
  countAtSleep_ = 0;
  Add(bytes);
}

void BurstPace::Add(u32 bytes) noexcept {
  ++count_;
  weight_ += bytes + kOverheadBytes;
}

// The smaller of the last two: a single large burst, such as a key frame between small ones, mustn't make those
// after it late. One that is larger than expected is waited for.
u32 BurstPace::Expected() const noexcept { return std::min(lastCounts_[0], lastCounts_[1]); }

BurstPace::Nanoseconds BurstPace::Moment(Nanoseconds now) noexcept {
  if (!saves_ || count_ == countAtSleep_) {
    return Nanoseconds{
        0};  // the last sleep brought nothing: whatever this is, it isn't the pace of the last bursts
  }
  const Nanoseconds elapsed = now - began_;
  if (count_ > 1) {
    gap_ = std::min(gap_, elapsed / (count_ - 1));  // they have come by now, at the latest
  }
  const Nanoseconds least = std::max(kShortest, 2 * gap_);
  const Nanoseconds longest = Longest();
  if (longest < least) {
    return Nanoseconds{0};
  }
  // What is left in equal parts. A burst that is overdue may end with every datagram; the longer it has been going on
  // since then, the longer it probably will.
  const Nanoseconds left = Due() - elapsed;
  const Nanoseconds moment =
      left > Nanoseconds{0} ? left / ((left + longest - Nanoseconds{1}) / longest) : std::min(-left, longest);
  if (moment < least) {
    return Nanoseconds{0};
  }
  countAtSleep_ = count_;
  return moment;
}

void BurstPace::End(Nanoseconds now, bool waitedFor) noexcept {
  const u32 gaps = std::max<u32>(count_ - 1, 1);
  const Nanoseconds measured = (now - began_) / gaps;
  // When it came during a sleep, it came earlier than known. The next sleep is a little shorter, until a last datagram
  // has to be waited for again.
  gap_ = waitedFor ? measured : std::min(gap_ - gap_ / 32, measured);
  lastCounts_ = {count_, lastCounts_[0]};
  quarterCount_ = std::int64_t{quarterBytes_} * count_ / weight_;
  saves_ = Due() >= kShortest && Longest() >= std::max(kShortest, 2 * gap_);
  count_ = 0;
}

}  // namespace sarnevo
