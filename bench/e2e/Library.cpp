#include "e2e/Receivers.h"
#include "e2e/Stamp.h"
#include "support/HostCamera.h"

namespace kolvex_bench {

namespace {

class CountingCamera : public HostCamera {
 public:
  CountingCamera(const Plan& plan, Board& board, Arrivals& arrivals, int index)
      : HostCamera(CameraAddress(index), CodecOf(plan, index)), board_(board), arrivals_(arrivals) {}

  // Without a frame the library neither copies nor calls on: what it took up to here is the packet path alone.
  sarnevo::ipcapture::IFrame* AllocateFrame(u32 fourCC, u32 size, const char* owner) override {
    if (board_.refusing.load(std::memory_order_relaxed)) {
      arrivals_.frames.fetch_add(1, std::memory_order_relaxed);
      return nullptr;
    }
    return HostCamera::AllocateFrame(fourCC, size, owner);
  }

  bool OnFrame(sarnevo::ipcapture::IFrame* /*frame*/) override {
    if (const auto age = Stamp::AgeOf(FrameData(), FrameSize())) {
      arrivals_.frames.fetch_add(1, std::memory_order_relaxed);
      arrivals_.Add(*age);
    }
    return true;
  }

 private:
  Board& board_;
  Arrivals& arrivals_;
};

}  // namespace

void RunLibrary(const Plan& plan, Board& board, int place) {
  const DriverLibrary library(KOLVEX_LIBRARY);
  for (int i = 0; i < plan.streams; ++i) {
    // Ends with the process.
    auto* const camera =
        new CountingCamera(plan, board, board.places[static_cast<std::size_t>(place)].arrivals, i);
    camera->Start(library);
  }
}

}  // namespace kolvex_bench
