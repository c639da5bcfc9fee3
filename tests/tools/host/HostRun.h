#pragma once

#include <cstdlib>
#include <string>

#include "support/ProgramRun.h"

namespace kolvex_test {

using HostResult = ProgramResult;

/// kolvex-host with the test's driver as its library.
class HostRun : public ProgramRun {
 public:
  HostRun() : ProgramRun(KOLVEX_HOST, "--library " FAKE_DRIVER) { setenv("FAKE_DRIVER_LOG", "driver.log", 1); }

  /// The calls that the fake driver was given.
  std::string DriverLog() const { return Read("driver.log"); }
};

}  // namespace kolvex_test
