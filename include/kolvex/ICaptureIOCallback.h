#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Implemented by the host: hears what happens on a camera's digital inputs and outputs.
///
/// Called from two threads of the library, one for inputs and one for outputs, at the same time too, and
/// with no lock held, so that it may call back into ICaptureIOApi. What it throws is dropped. It lives until
/// ICaptureIOApi::Stop has returned true.
class ICaptureIOCallback {
 public:
  virtual ~ICaptureIOCallback() = default;  ///< slot 0
  /// Input @p index, from 0, has another IOState than before. After Start, and after a failure, each input is
  /// reported once, whatever its state is.
  virtual void OnInputChanged(u32 index, u32 state) = 0;  ///< slot 1
  /// The camera didn't take an output request, which isn't repeated.
  virtual void OnIOFailure() = 0;  ///< slot 2
};

}  // namespace sarnevo
