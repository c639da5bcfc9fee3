#pragma once

namespace kolvex_test {

/// @p count simulated cameras of each group, at 127.0.1.1 and 127.0.2.1 upwards, in a process of their own that
/// ends with the caller. Called before the caller has threads.
void StartCameras(int count);

}  // namespace kolvex_test
