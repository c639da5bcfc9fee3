// Eight threads call everything that the library exports at random, for a while. Of the host's duties only the
// contract's own are kept: Open and Close of a driver come by themselves, and so does the capability query.
//
//   random_calls LIBRARY SECONDS [SEED]
#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>

#include "Cameras.h"
#include "support/LoadedHost.h"

namespace kolvex_test {

namespace {

constexpr int kThreads = 8;
constexpr int kDrivers = 4;

struct Slot {
  Slot(const char* group, int number) : host(group, number, "address of " + std::to_string(number)) {}

  Host host;
  std::shared_mutex opening;  // alone for Open, Close and Delete
  IIPCaptureDriverEx3* driver = nullptr;
};

class Caller {
 public:
  Caller(const Library& library, std::array<std::unique_ptr<Slot>, kDrivers>& slots, std::mutex& querying,
         unsigned seed)
      : library_(library), slots_(slots), querying_(querying), random_(seed) {}

  void Call() {
    const u32 choice = Below(100);
    Slot& slot = *slots_[Below(kDrivers)];
    if (choice < 2) {
      Query(slot.host);
    } else if (choice < 4) {
      Reopen(slot);
    } else {
      const std::shared_lock guard(slot.opening);
      if (slot.driver != nullptr) {
        choice < 45 ? CallVideo(slot) : choice < 65 ? CallPins(slot) : CallHead(slot);
      }
    }
  }

 private:
  u32 Below(u32 end) { return static_cast<u32>(random_() % end); }

  void Query(Host& host) {
    const std::lock_guard guard(querying_);
    library_.init(&host, static_cast<u8>(Below(2)));
    library_.start(host.address.c_str(), 80, "", "", &host);
    if (Below(2) == 0) {
      library_.terminate();
    }
    library_.uninit();
  }

  void Reopen(Slot& slot) {
    const std::lock_guard guard(slot.opening);
    if (slot.driver != nullptr && Below(2) == 0) {
      slot.driver->Close();
    }
    library_.destroy(slot.driver);
    slot.driver = library_.create();
    if (slot.driver == nullptr || !slot.driver->Open(&slot.host, &slot.host, &slot.host)) {
      std::abort();
    }
  }

  void CallVideo(Slot& slot) {
    IIPVideoCapture& video =
        *(Below(2) == 0 ? slot.driver->GetVideoCapture() : slot.driver->GetVideoCaptureEx());
    const u32 channel = Below(4) == 0 ? Below(18) : Below(2);
    u32 status = 0, extra = 0;
    char text[8];
    switch (Below(6)) {
      case 0:
        video.StopCapture(channel);
        break;
      case 1:
        video.ChangeFormat(channel, &slot.host, 40);
        break;
      case 2:
        video.GetChannelStatus(channel, &status, &extra, text, sizeof(text));
        break;
      default:
        video.StartCapture(channel, &slot.host, &slot.host);
        break;
    }
    IIPVideoCaptureEx& extended = *slot.driver->GetVideoCaptureEx();
    static_cast<void>(video.GetChannelCount() + video.Reserved5() + video.Reserved7(1, 2, 3) +
                      video.Reserved8(1, 2, 3) + extended.Reserved9(1) + extended.Reserved10(1));
  }

  void CallPins(Slot& slot) {
    ICaptureIOApi& pins = *slot.driver->GetCaptureIO();
    switch (Below(5)) {
      case 0:
        pins.SetCallback(&slot.host);
        break;
      case 1:
        pins.Start();
        break;
      case 2:
        pins.Stop();
        break;
      default:
        pins.SetOutput(Below(3), Below(3));
        break;
    }
    static_cast<void>(pins.GetInputCount() + pins.GetOutputCount());
  }

  void CallHead(Slot& slot) {
    IIPPTZDriverEx* const heads = slot.driver->GetPTZDriverEx();
    IIPPTZApiEx* const head = heads->GetPTZApiEx(Below(2));
    slot.driver->GetPTZDriver()->GetPTZApi(Below(2));
    if (slot.driver->GetOptionalA() != nullptr || slot.driver->GetOptionalB() != nullptr) {
      std::abort();
    }
    if (head == nullptr) {
      return;
    }
    constexpr std::array kNames{"Gate", "Yard", "Door", "", "a<b"};
    const char* const name = kNames[Below(kNames.size())];
    char text[32];
    CPtzCapabilities record;
    const std::array<std::function<i32()>, 18> calls{
        [&] { return head->StartMove(Below(12), static_cast<i32>(Below(18))); },
        [&] { return head->StopMove(); },
        [&] { return head->Center(1, 2, 3); },
        [&] { return head->ZoomIn(3); },
        [&] { return head->ZoomOut(3); },
        [&] { return head->Unzoom(1); },
        [&] { return head->AreaZoom(1, 2, 3, 4); },
        [&] { return head->FocusNear(Below(2)); },
        [&] { return head->FocusFar(Below(2)); },
        [&] { return head->IrisOpen(Below(2)); },
        [&] { return head->IrisClose(Below(2)); },
        [&] { return head->GetCapabilities(&record); },
        [&] {
          return static_cast<i32>(head->GetPrepositionCount() + head->IsPTZAvailable() + head->CheckValue(1));
        },
        [&] { return head->GetPrepositionName(Below(4), text, Below(sizeof(text) + 1)); },
        [&] { return head->SelectPreposition(0, name); },
        [&] { return head->AddPreposition(name); },
        [&] { return head->DeletePreposition(name); },
        [&] { return head->GetCurrentPreposition(text, sizeof(text)); },
    };
    calls[Below(calls.size())]();
  }

  const Library& library_;
  std::array<std::unique_ptr<Slot>, kDrivers>& slots_;
  std::mutex& querying_;
  std::minstd_rand random_;
};

}  // namespace

}  // namespace kolvex_test

int main(int count, char** arguments) {
  using namespace kolvex_test;
  if (count < 3) {
    return 2;
  }
  StartCameras(2);
  const Library library(arguments[1]);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(arguments[2]));
  const unsigned seed = count > 3 ? static_cast<unsigned>(std::atoi(arguments[3])) : std::random_device()();
  std::array<std::unique_ptr<Slot>, kDrivers> slots;
  for (int i = 0; i < kDrivers; ++i) {
    slots[static_cast<std::size_t>(i)] = std::make_unique<Slot>(i % 2 == 0 ? "1" : "2", i / 2 + 1);
  }
  std::mutex querying;
  std::atomic<u64> calls{0};
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      // A busy machine may need longer for the first frame.
      const auto isOver = [&](auto now) {
        const auto hasFrames = [](const auto& slot) { return slot->host.frames != 0; };
        return now > end && (std::ranges::any_of(slots, hasFrames) || now > end + std::chrono::seconds(30));
      };
      for (Caller caller(library, slots, querying, seed + i); !isOver(std::chrono::steady_clock::now());
           ++calls) {
        caller.Call();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  u64 frames = 0;
  bool good = true;
  for (const auto& slot : slots) {
    library.destroy(slot->driver);
    frames += slot->host.frames;
    good = good && slot->host.lent == 0;
  }
  std::printf("%llu calls, %llu frames, seed %u%s\n", static_cast<unsigned long long>(calls),
              static_cast<unsigned long long>(frames), seed, good ? "" : ", frames are kept");
  return good && frames != 0 ? 0 : 1;
}
