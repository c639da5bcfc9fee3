#include <gtest/gtest.h>

#include "support/ProgramRun.h"

namespace sarnevo::ipcapture {
namespace {

// Functions at one address share a line.
TEST(Exports, AreTheNamesThatHostsLookUpAndNothingElse) {
  EXPECT_EQ(
      kolvex_test::ProgramRun("nm")
          .Run("-D --defined-only " KOLVEX_LIBRARY
               " | awk '{ names[$1] = names[$1] $3 \" \" } END { for (at in names) print names[at] }' | sort")
          .out,
      "CreateIPCapture CreateIPCaptureEx CreateIPCaptureEx2 CreateIPCaptureEx3 \n"
      "DeleteIPCapture DeleteIPCaptureEx DeleteIPCaptureEx2 DeleteIPCaptureEx3 \n"
      "InitCapabilityQuery \nStartCapabilityQuery \nTerminateCapabilityQuery \nUninitCapabilityQuery \n");
}

}  // namespace
}  // namespace sarnevo::ipcapture
