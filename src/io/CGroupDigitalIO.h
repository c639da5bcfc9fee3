#pragma once

#include <vector>

#include "camera/CameraRequest.h"
#include "io/CIOBase.h"

namespace sarnevo {

/// The words that one camera group has for its inputs and outputs. Numbers count from 1 in them.
struct DigitalIOWords {
  // Before an output's number, and between it and its value.
  const char* outputRequest;
  const char* outputValue;
  const char* inputRequest;
  // Before an input's number, and after it up to the "=".
  const char* inputKey;
  const char* inputKeyEnd;
  // Characters that end a value in the reply.
  const char* terminators;
};

/// Digital inputs and outputs over the CGI requests of a camera group.
///
/// The two threads of CIOBase have a request object each, so that neither waits for the other; both may have
/// a request under way to the same camera. A failed read of the inputs changes nothing and is reported to nobody:
/// the inputs keep their states until the next good reply.
///
/// The connection of the inputs is kept from one poll to the next where the camera does its part, and given
/// up by Stop. Outputs come seldom, so that each has a connection of its own.
class CGroupDigitalIO : public CIOBase {
 protected:
  /// Address, port, credentials and time-out are read from @p driver once, here.
  CGroupDigitalIO(const DigitalIOWords& words, Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs);

  bool WriteOutput(u32 index, u32 state) override;
  bool ReadInputs(u32 count) override;
  void CloseConnections() noexcept override;

 private:
  bool FetchInputs();
  u32 StateOf(u32 number) const;

  const DigitalIOWords& words_;
  CameraRequest outputRequest_;  // output thread
  CameraRequest inputRequest_;   // input thread
  std::vector<u8> reply_;        // input thread; keeps its capacity
};

class CKolvexGroup1DigitalIO final : public CGroupDigitalIO {
 public:
  CKolvexGroup1DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs = kStopTimeoutMs);
};

class CKolvexGroup2DigitalIO final : public CGroupDigitalIO {
 public:
  CKolvexGroup2DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs = kStopTimeoutMs);
};

}  // namespace sarnevo
