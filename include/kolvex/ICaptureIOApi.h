#pragma once

#include "kolvex/ICaptureIOCallback.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// Digital inputs and outputs of one camera; the driver's, from Open to Close.
///
/// The order is SetCallback, Start, any number of SetOutput, Stop, and Start again if wanted. The callback is needed before
/// Start. Any thread may call any operation, from inside a callback too.
class ICaptureIOApi {
 public:
  virtual ~ICaptureIOApi() = default;  ///< slot 0
  /// Takes the host's object, which isn't owned and lives until Stop gave true or the driver's Close has returned. False
  /// for null, which changes nothing.
  virtual bool SetCallback(ICaptureIOCallback* callback) = 0;  ///< slot 1
  /// Begins to poll the inputs, every two seconds plus the time of the request, and asks the camera to set
  /// all outputs low. False when a thread can't be made, when the device has more than 256 inputs or outputs, and
  /// when it runs already: then it goes on, the camera is asked again to set all outputs low, and all inputs are
  /// reported again.
  virtual bool Start() = 0;  ///< slot 2
  /// Ends polling and switching, within 5 seconds each and 100 ms. Outputs stay as they are; requests that wait are dropped.
  /// False inside a callback: its thread ends when the callback has returned. True when nothing ran.
  virtual bool Stop() = 0;  ///< slot 3
  /// As the host gave it at Open.
  virtual u32 GetInputCount() = 0;  ///< slot 4
  /// As the host gave it at Open.
  virtual u32 GetOutputCount() = 0;  ///< slot 5
  /// Asks the camera to set an output, counted from 0. IOStateLow is low, any other state counts as high; don't ask for
  /// IOStateUnknown. Returns at once. True: the request is queued, and only OnIOFailure reports when it fails. A request
  /// for an output that the device doesn't have is dropped, and one for the state that the output has already isn't sent.
  /// False after Stop.
  virtual bool SetOutput(u32 index, u32 state) = 0;  ///< slot 6
};

}  // namespace sarnevo
