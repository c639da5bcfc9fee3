#include "Cameras.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "simcam/CameraFarm.h"

namespace kolvex_test {

void StartCameras(int count) {
  int ready[2];
  if (pipe(ready) != 0) {
    std::exit(2);
  }
  if (fork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      simcam::CameraFarm farm;
      for (int number = 1; number <= count; ++number) {
        const std::string at = std::to_string(number) + ",user=,inputs=2,outputs=2,resolution=qcif,caption=one";
        farm.Add("group=1,serial=2,address=127.0.1." + at);
        farm.Add("group=2,codec=mpeg4,address=127.0.2." + at);
      }
      const char word = 'r';
      static_cast<void>(!write(ready[1], &word, 1));
      for (;;) {
        pause();
      }
    } catch (const std::exception& error) {
      std::fprintf(stderr, "no camera: %s\n", error.what());
      _exit(2);
    }
  }
  close(ready[1]);
  char word = 0;
  if (read(ready[0], &word, 1) != 1) {
    std::exit(2);
  }
  close(ready[0]);
}

}  // namespace kolvex_test
