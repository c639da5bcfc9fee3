// Watches the digital inputs of one camera and prints each change with its time. Takes no video and switches nothing.
#include <csignal>
#include <ctime>

#include "host-objects.h"

using namespace example;

namespace {

// Called from the library's input thread.
struct Watcher final : ICaptureIOCallback {
  void OnInputChanged(u32 index, u32 state) override {
    char at[16];
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    std::strftime(at, sizeof at, "%H:%M:%S", localtime_r(&now, &parts));
    std::printf("%s input %u is %s\n", at, static_cast<unsigned>(index + 1),
                state == IOStateHigh ? "high" : "low");
    std::fflush(stdout);
  }
  void OnIOFailure() override {}  // of outputs, which aren't used here
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(
        stderr,
        "usage: watch-inputs ADDRESS\n"
        "Asks the camera what it is, and watches its inputs until Ctrl-C. The password of the user \"admin\" "
        "comes from\n"
        "KOLVEX_PASSWORD, the library from KOLVEX_LIBRARY_FILE or from where libraries are installed.\n"
        "Exit codes: 0 ended by Ctrl-C, 1 wrong usage, 2 no library, 3 refused by it, 5 the query failed\n");
    return 1;
  }
  // The signals are taken by waiting for them. The library's threads block them anyway.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  const Library library(std::getenv("KOLVEX_LIBRARY_FILE"));
  if (!library.IsLoaded()) {
    return 2;
  }
  Camera camera;
  camera.address = argv[1];
  if (!library.Query(camera)) {
    return 5;
  }
  Watcher watcher;
  const Library::Driver driver = library.Create();
  if (!driver || !driver->Open(nullptr, nullptr, &camera)) {
    return 3;
  }
  ICaptureIOApi* const io = driver->GetCaptureIO();  // null for a camera without inputs and outputs
  if (!io || !io->SetCallback(&watcher) || !io->Start()) {
    return 3;
  }
  int signal = 0;
  sigwait(&ends, &signal);
  io->Stop();
  return 0;
}
