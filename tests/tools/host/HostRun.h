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
    // Copied by a process of its own: a file that this one has open for writing can't be run by others, and a fork
    // on another thread would keep it open.
    const std::string copy = "cp '" KOLVEX_HOST "' '" + (Folder() / "kolvex-host").string() + "'";
    EXPECT_EQ(std::system(copy.c_str()), 0);
    std::filesystem::create_symlink(KOLVEX_LIBRARY, Folder() / KOLVEX_LIBRARY_NAME);
    static const bool once =
        setenv("KOLVEX_USER", "admin", 1) == 0 && setenv("KOLVEX_PASSWORD", "kolvex", 1) == 0;
    EXPECT_TRUE(once);
  }
};

}  // namespace kolvex_test
