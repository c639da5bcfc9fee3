#pragma once

#include <stdlib.h>

#include "kolvex/Version.h"
#include "simcam/CameraFarm.h"
#include "support/ProgramRun.h"

namespace kolvex_test {

/// kolvex-host with the library beside it, in a folder of its own where it may leave files, with the credentials
/// of the simulated cameras in its environment.
class HostRun : public ProgramRun {
 public:
  HostRun() : ProgramRun("./kolvex-host") {
    std::error_code otherDisk;
    std::filesystem::create_hard_link(KOLVEX_HOST, Folder() / "kolvex-host", otherDisk);
    if (otherDisk) {
      std::filesystem::copy_file(KOLVEX_HOST, Folder() / "kolvex-host");
    }
    std::filesystem::create_symlink(KOLVEX_LIBRARY, Folder() / KOLVEX_LIBRARY_NAME);
    static const bool once =
        setenv("KOLVEX_USER", "admin", 1) == 0 && setenv("KOLVEX_PASSWORD", "kolvex", 1) == 0;
    EXPECT_TRUE(once);
  }
};

}  // namespace kolvex_test
