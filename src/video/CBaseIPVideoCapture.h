#pragma once

#include <memory>
#include <vector>

#include "kolvex/IIPVideoCapture.h"
#include "threads/COptex.h"

namespace sarnevo {

class CBaseCameraChannel;
class Device;
class FrameReturns;

/// The video side of one driver towards the host: a locked table of up to 16 channels.
///
/// Any thread may call any operation, and calls take turns. The host may also call from inside a callback of
/// a channel, of this object or another, including an operation that ends that channel. On such a thread an
/// operation gives false, without doing anything, when another thread is ending the channel whose callback
/// it is in: that one waits for the callback, so that to wait for it in turn would never end. What waits for nobody,
/// the start of a new channel for one, is done all the same.
///
/// Lives in a std::shared_ptr; its owner calls End and lets go.
class CBaseIPVideoCapture final : public ipcapture::IIPVideoCaptureEx,
                                  public std::enable_shared_from_this<CBaseIPVideoCapture> {
 public:
  /// @param driver  outlives this object
  /// @param group   camera group, 1 or 2
  CBaseIPVideoCapture(Device* driver, u32 group);
  ~CBaseIPVideoCapture() override;
  CBaseIPVideoCapture(const CBaseIPVideoCapture&) = delete;
  CBaseIPVideoCapture& operator=(const CBaseIPVideoCapture&) = delete;

  /// Ends all channels, in the order of their indexes, and the allocator's use. Once; from then on operations give
  /// false.
  void End() noexcept;

  u32 GetChannelCount() override;
  /// False also when @p params or one of its objects is null. A channel that is still configuring its camera
  /// starts again with the new values, and with the sink that it has. A new one that can't be started stays, with
  /// its sink, until StopCapture.
  bool StartCapture(u32 channel, ipcapture::IFrameSink* sink, ipcapture::IIPVideoParams* params) override;
  bool StopCapture(u32 channel) override;
  /// Stops the channel before it asks for the size. With a null @p resolution nothing happens.
  bool ChangeFormat(u32 channel, ipcapture::IIPResolution* resolution, u32 frameInterval) override;
  u32 Reserved5() override { return 0; }
  /// Any of the pointers may be null.
  bool GetChannelStatus(u32 channel, u32* status, u32* extra, char* text, u32 textSize) override;
  bool Reserved7(u32 /*a*/, u32 /*b*/, u32 /*c*/) override { return false; }
  bool Reserved8(u32 /*a*/, u32 /*b*/, u32 /*c*/) override { return false; }
  bool Reserved9(u32 /*a*/) override { return false; }
  bool Reserved10(u32 /*a*/) override { return false; }

 private:
  class Entry;

  bool Enter() noexcept;
  bool HasChannel(u32 channel) const noexcept;
  bool StopChannel(u32 channel) noexcept;
  std::shared_ptr<CBaseCameraChannel> MakeChannel(u32 channel, ipcapture::IFrameSink* sink) const;

  Device* const driver_;
  const u32 group_;
  const std::shared_ptr<FrameReturns> returns_;
  // Held through each operation, a stop's waiting included. No channel thread takes it but from inside a
  // callback.
  COptex lock_;
  // Under lock_.
  std::vector<std::shared_ptr<CBaseCameraChannel>> channels_;  // null where no channel runs
  bool ended_ = false;
};

}  // namespace sarnevo
