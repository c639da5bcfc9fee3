#include "Soak.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "Process.h"
#include "Scenario.h"

namespace kolvex_test {

namespace {

constexpr int kSamples = 40;
constexpr int kWarmUp = 10;  // of them
constexpr int kStreams = 8;  // at a time

// What a process holds, with nothing of the library running.
using Sample = std::array<double, 4>;
constexpr std::array<const char*, 4> kNames{"descriptors", "threads", "blocks", "resident KiB"};
// How much the fitted line may rise from the end of the warm-up to the end. Whole things may not rise by one; the
// system hands out memory in coarse pieces.
constexpr Sample kMayRise{0.5, 0.5, 0.5, 1024};

Sample Take() {
  Eventually([] { return Threads() == 1; });
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return {static_cast<double>(Descriptors()), static_cast<double>(Threads()), static_cast<double>(LiveBlocks()),
          static_cast<double>(pages * sysconf(_SC_PAGESIZE) / 1024)};
}

// The rise of the least-squares line through the samples after the warm-up, over all of them.
double Rise(const std::vector<Sample>& samples, std::size_t what) {
  const double n = static_cast<double>(samples.size() - kWarmUp);
  double x = 0, y = 0, xx = 0, xy = 0;
  for (std::size_t i = kWarmUp; i < samples.size(); ++i) {
    const double at = static_cast<double>(i);
    x += at;
    y += samples[i][what];
    xx += at * at;
    xy += at * samples[i][what];
  }
  return (n * xy - x * y) / (n * xx - x * x) * (n - 1);
}

// Does a share of the work before each sample. False when something rises or the work fails.
bool StaysLevel(const char* name, int count, const std::function<bool(int)>& work) {
  const int share = std::max(1, count / kSamples);
  std::vector<Sample> samples;
  bool good = true;
  for (int i = 0; i < kSamples && good; ++i) {
    good = work(share);
    samples.push_back(Take());
  }
  std::printf("%d %s:", share * static_cast<int>(samples.size()), name);
  for (std::size_t what = 0; what < kNames.size() && good; ++what) {
    const double rise = Rise(samples, what);
    std::printf(" %s %.0f, rise %.2f;", kNames[what], samples.back()[what], rise);
    good = rise <= kMayRise[what];
  }
  std::printf(" %s\n", good ? "level" : "NOT LEVEL");
  return good;
}

// A driver that is open for as long as this object lives.
struct Session {
  Session(const Library& library, Host& host) : library_(library), driver(library.create()) {
    opened = driver->Open(&host, &host, &host);
  }
  ~Session() { library_.destroy(driver); }

 private:
  const Library& library_;

 public:
  IIPCaptureDriverEx3* const driver;
  bool opened = false;
};

bool RestartStream(const Library& library, int number, int count) {
  const Side inside(true);
  Host host(number % 2 == 0 ? "1" : "2", number / 2 + 1, "");
  const Session session(library, host);
  IIPVideoCapture& video = *session.driver->GetVideoCapture();
  bool good = session.opened && video.StartCapture(0, &host, &host);
  for (int i = 0; i < count && good; ++i) {
    const u64 before = host.frames;
    good = Await(std::chrono::seconds(20), [&] { return host.frames > before; }) &&
           (i % 2 == 0 ? video.ChangeFormat(0, &host, 40)
                       : video.StopCapture(0) && video.StartCapture(0, &host, &host));
  }
  return good;
}

bool RestartStreams(const Library& library, int count) {
  std::atomic<bool> good{true};
  std::vector<std::thread> threads;
  for (int number = 0; number < kStreams; ++number) {
    threads.emplace_back([&, number] {
      if (!RestartStream(library, number, (count + kStreams - 1) / kStreams)) {
        good = false;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return good;
}

bool OpenAndClose(const Library& library, int count) {
  const Side inside(true);
  for (int i = 0; i < count; ++i) {
    Host host(i % 2 == 0 ? "1" : "2", 1, "address of the soak");
    const Session session(library, host);
    // Each tenth with the threads of pins and head.
    if (!session.opened || (i % 10 == 0 && (!session.driver->GetCaptureIO()->Start() ||
                                            session.driver->GetPTZDriver()->GetPTZApi(0) == nullptr))) {
      return false;
    }
  }
  return true;
}

bool ChangePositions(const Library& library, int count) {
  const Side inside(true);
  Host host("1", 1, "address of the soak");
  const Session session(library, host);
  IIPPTZApi* const head = session.driver->GetPTZDriver()->GetPTZApi(0);
  for (int i = 0; i < count; i += 4) {
    if (head == nullptr || head->AddPreposition("Gate") != PtzDone || head->AddPreposition("Door") != PtzDone ||
        head->SelectPreposition(0, "Door") != PtzDone || head->DeletePreposition("Door") != PtzDone) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool Soak(const Library& library, int thousandths) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const int ten = 10 * thousandths;  // of ten thousand
  Host host("1", 1, "address of the soak");
  bool good = StaysLevel("opened and closed", ten, [&](int count) { return OpenAndClose(library, count); });
  good &= StaysLevel("queries", thousandths, [&](int count) {
    while (count-- > 0 && Query(library, host)) {
    }
    return count < 0;
  });
  good &=
      StaysLevel("operations on positions", ten, [&](int count) { return ChangePositions(library, count); });
  good &= StaysLevel("restarts of streams", ten, [&](int count) { return RestartStreams(library, count); });
  std::filesystem::remove(PresetFile(host));
  return good;
}

}  // namespace kolvex_test
