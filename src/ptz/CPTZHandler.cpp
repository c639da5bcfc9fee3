#include "ptz/CPTZHandler.h"

#include <cstdarg>
#include <exception>
#include <utility>

#include "device/Device.h"
#include "device/MessageText.h"
#include "ptz/CGroup1PTZComm.h"

namespace sarnevo {

namespace {

constexpr u32 kGroupWithPTZ = 1;
constexpr char kPresetRoot[] = "Kolvex";

}  // namespace

CPTZHandler::CPTZHandler(Device* driver, u32 channelCount, std::string presetFolder)
    : driver_(driver), channelCount_(channelCount), presetFolder_(std::move(presetFolder)) {}

CPTZHandler::~CPTZHandler() = default;

void CPTZHandler::End() noexcept {
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }
  // Nothing is added any more. All channels of a camera that hangs are ended at the same time, not one after the other.
  for (const auto& [channel, control] : controls_) {
    control->BeginClose();
  }
  for (const auto& [channel, control] : controls_) {
    control->End();
  }
  driver_ = nullptr;
}

std::string CPTZHandler::GetDeviceModel() { return driver_ != nullptr ? driver_->GetDeviceModel() : ""; }

std::string CPTZHandler::GetAddress() { return driver_ != nullptr ? driver_->GetAddress() : ""; }

u16 CPTZHandler::GetPort() { return driver_ != nullptr ? driver_->GetPort() : 0; }

std::string CPTZHandler::GetUserName() { return driver_ != nullptr ? driver_->GetUserName() : ""; }

std::string CPTZHandler::GetPassword() { return driver_ != nullptr ? driver_->GetPassword() : ""; }

void CPTZHandler::DebugMessage(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const MessageText text(format, arguments);
  va_end(arguments);
  if (text.Get() != nullptr && driver_ != nullptr) {
    driver_->DebugMessage(level, "%s", text.Get());
  }
}

IIPPTZApiEx* CPTZHandler::GetPTZApiEx(u32 channel) {
  if (channel >= channelCount_) {
    return nullptr;
  }
  const auto keep = shared_from_this();  // the host may end the driver in a message
  const platform::ThreadId self = platform::CurrentThreadId();
  std::unique_lock guard(lock_);
  turnOver_.wait(guard, [&] { return Known(channel) != nullptr || builder_ == 0 || builder_ == self; });
  if (CPTZControl* const known = Known(channel)) {
    return known;
  }
  // The host may ask again from within a message about the camera, on the thread that builds.
  const platform::ThreadId outer = std::exchange(builder_, self);
  guard.unlock();
  Controls built = BuildControl(channel);
  guard.lock();
  const bool wanted = !built.empty() && !ended_;
  if (wanted) {
    controls_.merge(built);  // unless the channel has got one meanwhile, which the host then knows
  }
  CPTZControl* const entered = wanted ? Known(channel) : nullptr;
  // One that isn't wanted goes within the turn.
  guard.unlock();
  built.clear();
  guard.lock();
  builder_ = outer;
  turnOver_.notify_all();
  return entered;
}

CPTZControl* CPTZHandler::Known(u32 channel) const {
  const auto known = controls_.find(channel);
  return known != controls_.end() ? known->second.get() : nullptr;
}

// Empty when the camera has no PTZ, its control can't be opened, or there is no memory; the next request then tries
// again.
CPTZHandler::Controls CPTZHandler::BuildControl(u32 channel) {
  if (driver_ == nullptr || driver_->GetGroup() != kGroupWithPTZ) {
    return {};
  }
  try {
    auto comm = std::make_unique<CGroup1PTZComm>(this);
    comm->KeepAlive(weak_from_this());
    if (!presetReader_) {
      LoadPresetFile();  // without a hardware address there is none, and no control opens
    }
    auto control = std::make_unique<CPTZControl>(this, channel);
    Controls built;
    if (control->Open(presetReader_, comm.release())) {
      built[channel] = std::move(control);
    }
    return built;
  } catch (const std::exception&) {
    return {};
  }
}

void CPTZHandler::LoadPresetFile() {
  const std::string hardwareAddress = driver_->GetMacAddress();
  if (hardwareAddress.empty()) {
    return;
  }
  // Before the reader is kept: one that isn't opened would never be.
  const std::string fileName = "Kolvex_" + hardwareAddress + ".preset";
  presetReader_.Attach(new CXMLPrepositionReader(kPresetRoot, presetFolder_));
  presetReader_->Open(fileName, false);
}

}  // namespace sarnevo
