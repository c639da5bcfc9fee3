#include "support/Failures.h"

#include <atomic>
#include <cstdlib>
#include <execinfo.h>
#include <unistd.h>

namespace kolvex_test {

namespace {

std::atomic<int> wanted{-1};
std::atomic<long> first{0}, count{0}, strikes{0};
std::atomic<bool> onward{false};

// With KOLVEX_TRACE the place that goes without is printed.
void Trace() {
  if (std::getenv("KOLVEX_TRACE") != nullptr) {
    const Side ours(false);
    void* frames[40];
    backtrace_symbols_fd(frames, backtrace(frames, 40), STDERR_FILENO);
  }
}

}  // namespace

bool Fails(Resource resource) {
  if (!inLibrary || wanted.load(std::memory_order_relaxed) != static_cast<int>(resource)) {
    return false;
  }
  const long number = count.fetch_add(1) + 1;
  if (number != first && !(number > first && onward)) {
    return false;
  }
  if (strikes.fetch_add(1) == 0) {
    Trace();
  }
  return true;
}

void Fail(Resource resource, long n, bool all) {
  strikes = 0;
  count = 0;
  first = n;
  onward = all;
  wanted = static_cast<int>(resource);
}
void Heal() { wanted = -1; }
long Strikes() { return strikes; }

}  // namespace kolvex_test
