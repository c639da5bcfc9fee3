#pragma once

namespace sarnevo {

class CBaseCameraChannel;

/// What the calling thread is to a camera channel. The host may call back into the library from a callback,
/// and may end there the very channel whose thread it runs on.
namespace channel_thread {

/// The channel that the calling thread works for: as its worker, or while it handles one of its packets.
/// Null on any other thread, and on one that was given up, by itself or by another thread. The latter may happen
/// at any moment, and the channel is then gone: CBaseCameraChannel looks into it under its claim lock only.
const CBaseCameraChannel* Current() noexcept;
void SetCurrent(const CBaseCameraChannel* channel) noexcept;

/// Parts the calling thread from its channel, which is about to end inside a callback of that thread: the
/// thread goes on in the host's code and ends when the host returns (platform::current_thread::Abandon), and
/// whoever waits for it waits no longer. It still gives a frame back that it has from the host.
void GiveUp() noexcept;

}  // namespace channel_thread

}  // namespace sarnevo
