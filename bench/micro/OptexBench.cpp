// Our general lock against the standard library's, free and contended.
#include <benchmark/benchmark.h>

#include <mutex>

#include "threads/COptex.h"

namespace {

struct Optex {
  sarnevo::COptex optex;
  void lock() { optex.Enter(); }
  void unlock() { optex.Leave(); }
};

template <typename Lock>
void EnterAndLeave(benchmark::State& state) {
  static Lock lock;
  static std::int64_t guarded = 0;
  for (auto _ : state) {
    const std::lock_guard guard(lock);
    benchmark::DoNotOptimize(++guarded);
  }
}

BENCHMARK(EnterAndLeave<Optex>)->Name("Optex")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(EnterAndLeave<std::recursive_mutex>)->Name("RecursiveMutex")->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
