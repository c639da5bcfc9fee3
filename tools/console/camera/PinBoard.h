#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "FramePool.h"
#include "web/Desk.h"
#include "camera/Link.h"
#include "kolvex/ICaptureIOApi.h"
#include "web/Http.h"

namespace kolvex_console {

/// A camera's inputs, watched from the beginning, and its outputs, which nobody touches before the first switch:
/// the driver starts with all outputs low.
class PinBoard {
 public:
  /// @p link outlives this object.
  explicit PinBoard(const Link& link);
  PinBoard(const PinBoard&) = delete;
  PinBoard& operator=(const PinBoard&) = delete;

  /// Begins to watch. Throws Failure when the driver refuses.
  void Start();
  /// Ends both; nothing is reported afterwards. Up to some seconds. The desk has ended.
  void Close();

  /// @p output from 1. On @p desk, in a job of it: waits a moment for the camera's refusal.
  Reply Switch(Desk& desk, unsigned output, bool high);

  // Any thread.
  nlohmann::json Inputs() const;
  nlohmann::json Outputs() const;
  /// Changes by input, from 1.
  std::map<unsigned, std::uint64_t> Changes() const;

 private:
  class Callback final : public sarnevo::ICaptureIOCallback {
   public:
    explicit Callback(PinBoard& board) : board_(board) {}
    void OnInputChanged(sarnevo::u32 index, sarnevo::u32 state) override { board_.TakeInput(index, state); }
    void OnIOFailure() override { board_.TakeFailure(); }

   private:
    PinBoard& board_;
  };
  struct Input {
    sarnevo::u32 state = sarnevo::IOStateUnknown;
    std::int64_t changed = 0;  // milliseconds since 1970; 0: not since the start
    std::uint64_t changes = 0;
  };
  void TakeInput(sarnevo::u32 index, sarnevo::u32 state);
  void TakeFailure();
  void SetOutputs(sarnevo::u32 state);

  const Link& link_;
  mutable std::mutex lock_;
  std::vector<Input> inputs_;          // guarded by lock_
  std::vector<sarnevo::u32> outputs_;  // guarded by lock_
  std::atomic<bool> failed_{false};    // an output's request, by the library's thread
  Callback callback_{*this};
  kolvex_host::FramePool noFrames_{0};
  std::optional<kolvex_host::DriverSession> inputDriver_;
  std::optional<kolvex_host::DriverSession> outputDriver_;  // desk's thread
};

}  // namespace kolvex_console
