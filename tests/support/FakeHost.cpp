#include "support/FakeHost.h"

namespace kolvex_test {

contract::IFrame* FakeAllocator::AllocateFrame(std::uint32_t fourCC, std::uint32_t size, const char* owner) {
  log_.Add("AllocateFrame " + FourCCText(fourCC) + " " + std::to_string(size) + " '" + owner + "'");
  if (onAllocate) {
    onAllocate();
  }
  if (refuses) {
    return nullptr;
  }
  auto frame = std::make_unique<FakeFrame>(log_, size);
  contract::IFrame* const given = frame.get();
  const std::lock_guard guard(lock_);
  frames_.emplace(given, std::move(frame));
  return given;
}

void FakeAllocator::ReleaseFrame(contract::IFrame* frame) {
  if (onRelease) {
    onRelease();
  }
  const std::lock_guard guard(lock_);
  log_.Add(frames_.erase(frame) == 1 ? "ReleaseFrame" : "ReleaseFrame of an unknown frame");
}

bool FakeSink::OnFrame(contract::IFrame* frame) {
  const auto* const own = static_cast<FakeFrame*>(frame);
  {
    const std::lock_guard guard(lock_);
    frames_.emplace_back(own->data.begin(), own->data.begin() + own->used);
  }
  log_.Add("OnFrame" + name_);
  return !onFrame || onFrame();
}

}  // namespace kolvex_test
