#pragma once

#include <utility>

namespace sarnevo::xml {

/// What @p call gives; an exception, which only want of memory causes here, becomes the failure value.
template <typename Result, typename Call>
Result Guarded(Result failure, Call&& call) noexcept {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    return failure;
  }
}

}  // namespace sarnevo::xml
