#pragma once

#include <filesystem>
#include <iterator>

namespace kolvex_test {

inline long CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}
/// Descriptors of this process, one more than there are else.
inline long Descriptors() { return CountEntries("/proc/self/fd"); }
inline long Threads() { return CountEntries("/proc/self/task"); }

}  // namespace kolvex_test
