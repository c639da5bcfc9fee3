#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

/// A fuzz target is one function over the bytes of an input. Built with libFuzzer it is the program; in the
/// ordinary build all targets are one program that replays the corpora.
///
///     FUZZ_TARGET(RtpHeader) { Check(input.size() < 65536, "a datagram is short"); }

namespace kolvex_fuzz {

using Bytes = std::span<const std::uint8_t>;
using Target = void (*)(Bytes input);

/// Adds a target to the replay program's list.
struct Registration {
  Registration(const char* name, Target target);
};

/// What has to hold for every input; stops the program otherwise, so that the input is kept.
inline void Check(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
  }
}

/// Takes an input apart from its front; gives zeros when it has run out.
class Reader {
 public:
  explicit Reader(Bytes input) : left_(input) {}

  std::uint8_t Byte() {
    const Bytes one = Take(1);
    return one.empty() ? std::uint8_t{0} : one.front();
  }
  Bytes Take(std::size_t count) {
    const Bytes taken = left_.first(count < left_.size() ? count : left_.size());
    left_ = left_.subspan(taken.size());
    return taken;
  }
  Bytes Rest() { return Take(left_.size()); }
  bool IsEmpty() const { return left_.empty(); }

 private:
  Bytes left_;
};

}  // namespace kolvex_fuzz

#if defined(KOLVEX_LIBFUZZER)
#define FUZZ_TARGET(name)                                                             \
  static void Fuzz##name(kolvex_fuzz::Bytes input);                                   \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    Fuzz##name({data, size});                                                         \
    return 0;                                                                         \
  }                                                                                   \
  static void Fuzz##name([[maybe_unused]] kolvex_fuzz::Bytes input)
#else
#define FUZZ_TARGET(name)                                                        \
  static void Fuzz##name(kolvex_fuzz::Bytes input);                              \
  static const kolvex_fuzz::Registration registration##name(#name, &Fuzz##name); \
  static void Fuzz##name([[maybe_unused]] kolvex_fuzz::Bytes input)
#endif
