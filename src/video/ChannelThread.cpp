#include "video/ChannelThread.h"

#include "platform/Thread.h"
#include "video/FrameLease.h"

namespace sarnevo::channel_thread {

namespace {

thread_local const CBaseCameraChannel* current = nullptr;

}  // namespace

const CBaseCameraChannel* Current() noexcept {
  return platform::current_thread::IsAbandoned() ? nullptr : current;
}

void SetCurrent(const CBaseCameraChannel* channel) noexcept { current = channel; }

void GiveUp() noexcept {
  FrameLease::KeepForGivenUpThread();
  current = nullptr;
  platform::current_thread::Abandon();
}

}  // namespace sarnevo::channel_thread
