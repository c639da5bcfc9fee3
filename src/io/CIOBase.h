#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "io/TOutputHandler.h"
#include "kolvex/ICaptureIOApi.h"
#include "threads/COptex.h"
#include "threads/CTickThread.h"
#include "threads/StopPatience.h"

namespace sarnevo {

class Device;

/// The half of the digital I/O that knows no camera.
///
/// Remembers the last known state of each input and output, reports an input to the host only when its state
/// has changed, and asks the camera for an output only when its state would change. After a failure it knows no state
/// any more: the next request for any output goes out, and the next good poll reports every input. So the host's picture
/// becomes right again without anything else.
///
/// Threads: one for the outputs, one for the inputs, so that a slow request of one doesn't hold up the other,
/// and the host's. Each is alone in its share of the camera access. Both own the object, which lives in a
/// std::shared_ptr; its owner calls End and lets go.
class CIOBase : public ICaptureIOApi, public std::enable_shared_from_this<CIOBase> {
 public:
  /// Most inputs or outputs of a camera. A host that names more has read something wrong; Start refuses it.
  static constexpr u32 kMaxPorts = 256;
  static constexpr u32 kPollIntervalMs = 2000;  ///< between two polls of the inputs
  static constexpr u32 kStopTimeoutMs = u32{stop_patience::kDigitalIO.count()};

  /// Starts no thread and makes no request.
  /// @param driver          outlives this object
  /// @param pollIntervalMs  between two polls of the inputs
  /// @param stopTimeoutMs   how long a stop waits for each thread before it lets it go or interrupts it; for tests
  CIOBase(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs = kStopTimeoutMs);
  ~CIOBase() override;
  CIOBase(const CIOBase&) = delete;
  CIOBase& operator=(const CIOBase&) = delete;

  /// Ends both threads, as Stop does, and for good; also from inside a callback.
  void End() noexcept;

  bool SetCallback(ICaptureIOCallback* callback) override;
  bool Start() override;
  bool Stop() override;
  u32 GetInputCount() override;
  u32 GetOutputCount() override;
  bool SetOutput(u32 index, u32 state) override;

 protected:
  /// One request out of the queue. Output thread.
  virtual void ApplyOutput(u32 index, u32 state);
  /// Makes the camera's output @p index, from 0, take @p state. False when it didn't. Output thread.
  virtual bool WriteOutput(u32 index, u32 state) = 0;
  /// Reads inputs 0 to @p count - 1 and calls UpdateInput for each. False to have everything forgotten and
  /// the failure reported. Input thread.
  virtual bool ReadInputs(u32 count) = 0;
  /// Gives back what is kept from one request to the next. Neither thread is in a request.
  virtual void CloseConnections() noexcept {}

  /// For ReadInputs: takes one state and reports a change to the host.
  void UpdateInput(u32 index, u32 state);
  /// For ReadInputs, which asks between two inputs: the host may take its time over each.
  bool AreInputsStopping() noexcept { return inputThread_.IsStopRequested(); }

 private:
  using States = std::array<u32, kMaxPorts>;
  class OwnerGuard;

  bool IsOwnThread() const noexcept;
  bool EndThreads();
  void InitOutputs();
  void ResetStates() noexcept;
  void SendOutput(u32 index, u32 state);
  void PollInputs();
  void ReportFailure() noexcept;

  Device* const driver_;
  const u32 stopTimeout_;
  TOutputHandler<CIOBase> outputHandler_;
  TTickThread<CIOBase> inputThread_;
  std::atomic<ICaptureIOCallback*> callback_{nullptr};  // written by the host, read by both threads

  // Held through Start, Stop and End. Taken before statesLock_.
  COptex ownerLock_;
  bool ended_ = false;  // under ownerLock_
  // A Stop inside a callback found the lock held: whoever starts is to stop again.
  std::atomic<bool> stopMissed_{false};
  // Guards both states: a failure on one thread clears the other one's too. Never held while calling out.
  COptex statesLock_;
  // With room for all from the start: what is forgotten for want of memory must not want memory for that.
  States inputs_{};
  States outputs_{};
};

}  // namespace sarnevo
