#pragma once

#include <optional>
#include <string>

#include "kolvex/Types.h"
#include "threads/HostCall.h"

namespace sarnevo {

/// Reads one value from an object of the host. A null object, and a getter that throws, give 0 or null.
template <typename Object, typename Value>
Value Ask(Object* object, Value (Object::*getter)()) noexcept {
  Value value{};
  if (object != nullptr) {
    CallHost([&] { value = (object->*getter)(); });
  }
  return value;
}

/// Copies one text from an object of the host at once, since the host may reuse its memory at the next call.
/// A null text counts as an empty one. Throws std::bad_alloc when there is no memory for it.
template <typename Object>
std::string AskText(Object* object, const char* (Object::*getter)()) {
  const char* const given = Ask(object, getter);
  return given != nullptr ? given : "";
}

/// The same for a numbered setting, where null means that it isn't set.
template <typename Params>
std::optional<std::string> AskSetting(Params* params, u32 index) {
  const char* given = nullptr;
  if (params != nullptr) {
    CallHost([&] { given = params->GetCustomSetting(index); });
  }
  return given != nullptr ? std::optional<std::string>(given) : std::nullopt;
}

}  // namespace sarnevo
