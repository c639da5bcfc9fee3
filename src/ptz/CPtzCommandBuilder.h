#pragma once

#include <atomic>
#include <string>

#include "kolvex/Types.h"
#include "ptz/CPelcoDPtzCommand.h"
#include "ptz/PtzCodes.h"

namespace sarnevo {

/// Makes the path and query of the HTTP request that carries a PTZ command to a group 1 camera, which
/// writes the hexadecimal bytes in it to the serial port of the head. A speed is put on the scale of the head's
/// protocol here.
///
/// Each build has a frame of its own, so that any threads may build at the same time. Without a protocol all
/// texts are empty.
class CPtzCommandBuilder {
 public:
  /// The owner, also while others build.
  void SetProtocol(u32 protocol) noexcept { protocol_.store(protocol, std::memory_order_relaxed); }
  u32 Protocol() const noexcept { return protocol_.load(std::memory_order_relaxed); }

  /// @param direction  a PtzDirection.
  /// @param speed      1 to 16.
  std::string MoveCommand(u32 direction, i32 speed) const;
  /// @param code  a LensCode.
  std::string LensCommand(u32 code) const;
  std::string StopCommand() const;
  std::string AutoFocusCommand() const;
  std::string AutoIrisCommand() const;
  /// @param slot  counted from 0.
  std::string PresetCommand(PresetOperation operation, u32 slot) const;

 private:
  // The request for one command, which is @p threeBytes in one protocol and @p frame in the other.
  std::string Command(const std::string& threeBytes, CPelcoDPtzCommand frame) const;

  // A PtzProtocol. On its own, so that relaxed is enough: nothing else is published with it.
  std::atomic<u32> protocol_{PtzProtocolNone};
};

}  // namespace sarnevo
