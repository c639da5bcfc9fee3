#include "video/CBaseIPVideoCapture.h"

#include <new>
#include <optional>

#include "device/Device.h"
#include "platform/Clock.h"
#include "threads/HostAsk.h"
#include "video/CGroup1CameraChannel.h"
#include "video/CGroup2CameraChannel.h"

namespace sarnevo {

namespace {

using ipcapture::IIPResolution;
using ipcapture::IIPVideoFormat;
using ipcapture::IIPVideoParams;
using ipcapture::IIPVideoRate;

// Between two looks at a lock that a stop may hold.
constexpr platform::Milliseconds kLockStep{2};

// Hosts have always been asked in this order, and twice for the rate.
std::optional<StreamFormat> ReadParams(IIPVideoParams* params) {
  StreamFormat wanted;
  IIPVideoRate* rate = Ask(params, &IIPVideoParams::GetRate);
  wanted.frameInterval = Ask(rate, &IIPVideoRate::GetFrameInterval);
  IIPVideoFormat* const format = Ask(params, &IIPVideoParams::GetFormat);
  IIPResolution* const resolution = Ask(format, &IIPVideoFormat::GetResolution);
  wanted.width = Ask(resolution, &IIPResolution::GetWidth);
  wanted.height = Ask(resolution, &IIPResolution::GetHeight);
  const bool hadRate = rate != nullptr;
  rate = Ask(params, &IIPVideoParams::GetRate);
  wanted.quality = Ask(rate, &IIPVideoRate::GetQuality);
  if (!hadRate || rate == nullptr || resolution == nullptr) {
    return std::nullopt;
  }
  return wanted;
}

}  // namespace

// The lock, from construction to the end of the scope; or nothing, when the caller must not wait for it, or the object
// has ended. Keeps the object, since the host may end it from inside a question.
class CBaseIPVideoCapture::Entry {
 public:
  explicit Entry(CBaseIPVideoCapture& capture) noexcept
      : capture_(capture.shared_from_this()), entered_(capture.Enter()) {}
  ~Entry() {
    if (entered_) {
      capture_->lock_.Leave();
    }
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  explicit operator bool() const noexcept { return entered_ && !capture_->ended_; }

 private:
  const std::shared_ptr<CBaseIPVideoCapture> capture_;
  const bool entered_;
};

CBaseIPVideoCapture::CBaseIPVideoCapture(Device* driver, u32 group)
    : driver_(driver), group_(group), returns_(std::make_shared<FrameReturns>()), channels_(kMaxChannels) {}

CBaseIPVideoCapture::~CBaseIPVideoCapture() = default;

void CBaseIPVideoCapture::End() noexcept {
  if (StopClaim::WorksFor(driver_)) {
    own_thread::LetGo();  // the caller's own channel ends with this object
  }
  // Where another operation would give up, the caller is let go: then nobody waits for it, and it may wait for anybody.
  if (!Enter()) {
    own_thread::LetGo();
    lock_.Enter();
  }
  for (std::shared_ptr<CBaseCameraChannel>& channel : channels_) {
    if (channel == nullptr) {
      continue;
    }
    if (!channel->Claim().Take()) {
      own_thread::LetGo();
      channel->Claim().Take();
    }
    channel->Stop();
    channel.reset();
  }
  ended_ = true;
  lock_.Leave();
  returns_->Close();
}

u32 CBaseIPVideoCapture::GetChannelCount() { return driver_ != nullptr ? driver_->GetChannelCount() : 0; }

bool CBaseIPVideoCapture::StartCapture(u32 channel, ipcapture::IFrameSink* sink, IIPVideoParams* params) {
  const Entry entry(*this);
  if (!entry || channel >= channels_.size() || (group_ != 1 && group_ != 2) || params == nullptr) {
    return false;
  }
  // A channel that doesn't start keeps its place and its sink: the next start finds it, and a stop ends it.
  std::shared_ptr<CBaseCameraChannel>& slot = channels_[channel];
  if (slot == nullptr) {
    slot = MakeChannel(channel, sink);
  }
  // The host may answer with nothing, or call back and end the channel.
  const auto wanted = ReadParams(params);
  return wanted && slot != nullptr &&
         slot->Start(wanted->frameInterval, wanted->width, wanted->height, wanted->quality);
}

bool CBaseIPVideoCapture::StopCapture(u32 channel) {
  const Entry entry(*this);
  if (!entry || !StopChannel(channel)) {
    return false;
  }
  channels_[channel].reset();
  return true;
}

bool CBaseIPVideoCapture::ChangeFormat(u32 channel, IIPResolution* resolution, u32 frameInterval) {
  const Entry entry(*this);
  if (!entry || resolution == nullptr || !StopChannel(channel)) {
    return false;
  }
  // The host may call back and end the channel.
  const u32 width = Ask(resolution, &IIPResolution::GetWidth);
  const u32 height = Ask(resolution, &IIPResolution::GetHeight);
  return HasChannel(channel) && channels_[channel]->ChangeFormat(width, height, frameInterval);
}

bool CBaseIPVideoCapture::GetChannelStatus(u32 channel, u32* status, u32* extra, char* text, u32 textSize) {
  if (extra != nullptr) {
    *extra = 0;
  }
  if (text != nullptr && textSize != 0) {
    text[0] = '\0';
  }
  const Entry entry(*this);
  if (!entry || !HasChannel(channel)) {
    return false;
  }
  if (status != nullptr) {
    *status = channels_[channel]->GetStatusCounter();
  }
  return true;
}

bool CBaseIPVideoCapture::Enter() noexcept {
  if (!StopClaim::WorksForAny()) {
    lock_.Enter();
    return true;
  }
  while (!lock_.TryEnter()) {
    if (StopClaim::WorksForTaken()) {
      return false;
    }
    platform::Sleep(kLockStep);
  }
  return true;
}

bool CBaseIPVideoCapture::HasChannel(u32 channel) const noexcept {
  return channel < channels_.size() && channels_[channel] != nullptr;
}

bool CBaseIPVideoCapture::StopChannel(u32 channel) noexcept {
  if (!HasChannel(channel) || !channels_[channel]->Claim().Take()) {
    return false;
  }
  channels_[channel]->Stop();
  return true;
}

std::shared_ptr<CBaseCameraChannel> CBaseIPVideoCapture::MakeChannel(u32 channel,
                                                                     ipcapture::IFrameSink* sink) const {
  try {
    if (group_ == 1) {
      return std::make_shared<CGroup1CameraChannel>(channel, driver_, sink, returns_);
    }
    return std::make_shared<CGroup2CameraChannel>(channel, driver_, sink, returns_);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace sarnevo
