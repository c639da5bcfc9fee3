#pragma once

#include <cstdint>

namespace kolvex_test {

/// What a stop by force may take beyond its time-out, milliseconds. The sanitizers' programs run several times
/// as long, on machines that are busy with other tests too.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint64_t kStopSlack = 500;
#else
constexpr std::uint64_t kStopSlack = 100;
#endif

}  // namespace kolvex_test
