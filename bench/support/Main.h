#pragma once

#include <cstdio>
#include <exception>

namespace kolvex_bench {

/// The whole of a benchmark's main: what @p run gives, or 1 after a line that says why it ended.
inline int Main(const char* program, int (*run)(int, char**), int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", program, failure.what());
    return 1;
  }
}

}  // namespace kolvex_bench
