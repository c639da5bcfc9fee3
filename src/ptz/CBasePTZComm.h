#pragma once

#include <atomic>

#include "device/RepeatCounter.h"
#include "kolvex/IIPDeviceParams.h"
#include "kolvex/IIPPTZApi.h"
#include "kolvex/IIPParams.h"
#include "prepositions/IPrepositionComm.h"
#include "ptz/CPtzCommandBuilder.h"
#include "ptz/PtzCodes.h"
#include "threads/CWorkItemThread.h"
#include "threads/StopClaim.h"

namespace sarnevo {

/// The half of the PTZ command path that knows no camera, and the owner of the PTZ thread.
///
/// Its operations check their arguments, queue a work item and return, so that a slow or absent camera
/// never holds up the caller; they may be called by any thread. A derived class turns each item into camera
/// requests, on the thread. Open, Close and destruction belong to one owner; it closes before the derived part
/// goes.
class CBasePTZComm : public thread::CWorkItemThread, public IPrepositionComm {
 public:
  static constexpr i32 kMaxSpeed = 16;

  /// One queued request; constant once posted.
  struct CWorkItem : IWorkItem {
    CWorkItem(u32 itemType, IIPParams* asker, u32 a = 0, u32 b = 0, u32 c = 0, u32 d = 0) noexcept
        : type(itemType), param1(a), param2(b), param3(c), param4(d), params(asker) {}

    const u32 type;  // a PtzItemType
    const u32 param1;
    const u32 param2;
    const u32 param3;
    const u32 param4;
    IIPParams* const params;  // not owned: the control that asked, which stops the thread before it goes
  };

  /// @param device  not owned; outlives this object.
  explicit CBasePTZComm(IIPDeviceParams* device) noexcept : device_(device) {}
  /// Closes.
  ~CBasePTZComm() override;

  // The order of the virtual operations goes on from CWorkItemThread.

  /// Not 0 when the camera has a PTZ protocol. May ask the camera, on the calling thread.
  virtual u32 IsPTZAvailable(IIPParams* params) = 0;
  // These give PtzDone when the item is queued, or there is nothing to queue, and PtzNotQueued, with a
  // message, while the object isn't open.
  virtual i32 StartMove(IIPParams* params, u32 direction, i32 speed);
  virtual i32 StopMove(IIPParams* params);
  virtual i32 Iris(IIPParams* params, u8 open, u32 speed);
  virtual i32 Focus(IIPParams* params, u8 near, u32 speed);
  virtual i32 AreaZoom(IIPParams* params, u32 a, u32 b, u32 c, u32 d);
  virtual i32 Unzoom(IIPParams* params, u32 a);
  virtual i32 Center(IIPParams* params, u32 a, u32 b, u32 c);
  virtual i32 GetCapabilities(CPtzCapabilities* record) = 0;
  /// A PtzProtocol. May ask the camera, on the calling thread, while none is known.
  virtual u32 GetPtzProtocol() = 0;
  /// The PtzProtocol that commands are built in, since Open. Asks nobody.
  u32 CommandProtocol() const noexcept { return commandBuilder_.Protocol(); }

  /// Reads the protocol for the commands again and starts the thread, unless it runs. 1, or -1 with a
  /// message.
  i32 Open();
  /// Throws away what is queued and waits for the item under way, which the limits of its requests bound: a stop command
  /// that a busy camera takes late must still reach the head. Always 1.
  i32 Close();

  /// For the wait for the item under way: whoever ends the object claims it first.
  StopClaim& Claim() noexcept { return claim_; }

  /// The one way out for messages of this class, of those derived from it, and of the list of stored
  /// positions.
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override;

  /// The most positions that the camera stores; 0 until the owner has set it.
  u32 GetMaxPrepositions() const noexcept { return maxPrepositions_; }
  void SetMaxPrepositions(u32 count) noexcept { maxPrepositions_ = count; }

 protected:
  /// Counts one more failed command, and says whether its message is to be written.
  bool ShouldLogFailure() noexcept { return failureCount_.ShouldReport(); }

  IIPDeviceParams& Camera() const noexcept { return *device_; }
  const CPtzCommandBuilder& Commands() const noexcept { return commandBuilder_; }

  // A PtzProtocol. Written once it is known, by whatever thread asked. Nothing else goes with it: relaxed is enough.
  std::atomic<u32> protocol_{PtzProtocolNone};

 private:
  // Queues the item that was made, or writes the message and destroys it.
  i32 Post(const char* operation, u32 type, IIPParams* params, u32 a = 0, u32 b = 0, u32 c = 0, u32 d = 0);

  IIPDeviceParams* const device_;
  StopClaim claim_{device_};
  u32 maxPrepositions_ = 0;     // constant after Open
  u8 opened_ = 0;               // the owner's thread only
  RepeatCounter failureCount_;  // any thread
  CPtzCommandBuilder commandBuilder_;
};

}  // namespace sarnevo
