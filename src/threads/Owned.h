#pragma once

#include <memory>
#include <utility>

namespace sarnevo {

/// Ends @p object and lets go of it. Its memory goes with the last thread that is still inside it. A second call, also
/// from inside the first, does nothing.
template <typename Object>
void EndOwned(std::shared_ptr<Object>& object) {
  if (const auto ending = std::exchange(object, nullptr)) {
    ending->End();
  }
}

}  // namespace sarnevo
