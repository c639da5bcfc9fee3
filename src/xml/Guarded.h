#pragma once

namespace sarnevo {

/// What @p call gives, or @p failure when it throws: what still throws here is a lack of memory.
template <typename Result, typename Call>
Result Guarded(Result failure, Call&& call) noexcept {
  try {
    return call();
  } catch (...) {
    return failure;
  }
}

}  // namespace sarnevo
