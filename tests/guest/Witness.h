#pragma once

#include <string>

namespace kolvex_test {

/// While it lives, the functions that change what is the process's own, and those that send and make threads,
/// are watched: this program's definitions of them replace the system's, for every library in it.
class Witness {
 public:
  Witness();
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  /// What should not have been: the name of each function that changed something, sent so that SIGPIPE could be
  /// raised, was for another than the cameras, or made a thread that takes the host's signals; and a line when
  /// hardly anything was seen.
  std::string Report() const;
};

}  // namespace kolvex_test
