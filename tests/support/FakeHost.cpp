#include "support/FakeHost.h"

namespace kolvex_test {

const char* FakeParams::GetCustomSetting(std::uint32_t index) {
  Say(("GetCustomSetting " + std::to_string(index)).c_str(), 0);
  const auto found = settings.find(index);
  if (found == settings.end()) {
    return nullptr;
  }
  handedOut_ = found->second;
  return handedOut_.c_str();
}

std::uint16_t FakeVideoParams::GetQuality() {
  if (onAsked) {
    onAsked();
  }
  return quality_;
}

std::uint8_t* FakeFrame::GetData() {
  log_.Add("GetData");
  return hasData ? data.data() : nullptr;
}

void FakeFrame::SetFourCC(std::uint32_t fourCC) { log_.Add("SetFourCC " + FourCCText(fourCC)); }

void FakeFrame::Note(const char* name, std::uint32_t value) {
  log_.Add(std::string(name) + " " + std::to_string(value));
}

std::string FourCCText(std::uint32_t fourCC) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    text += static_cast<char>(fourCC >> shift & 0xFF);
  }
  return text;
}

std::size_t FakeAllocator::Outstanding() const {
  const std::lock_guard guard(lock_);
  return frames_.size();
}

contract::IFrame* FakeAllocator::AllocateFrame(std::uint32_t fourCC, std::uint32_t size, const char* owner) {
  log_.Add("AllocateFrame " + FourCCText(fourCC) + " " + std::to_string(size) + " '" + owner + "'");
  if (onAllocate) {
    onAllocate();
  }
  if (refuses) {
    return nullptr;
  }
  auto frame = std::make_unique<FakeFrame>(log_, size);
  frame->hasData = !withoutData;
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

std::vector<std::vector<std::uint8_t>> FakeSink::Frames() const {
  const std::lock_guard guard(lock_);
  return frames_;
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

void FakeSink::OnNoData() {
  log_.Add("OnNoData" + name_);
  if (onNoData) {
    onNoData();
  }
}

void FakeDebugSink::OnDebugInfo(CDebugInfoIf* info) {
  log_.Add("OnDebugInfo " + std::to_string(info->GetLevel()) + " " +
           (info->GetText() != nullptr ? info->GetText() : "(null)"));
  if (onDebugInfo) {
    onDebugInfo();
  }
}

}  // namespace kolvex_test
