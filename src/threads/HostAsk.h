#pragma once

#include <optional>
#include <string>
#include <type_traits>

#include "kolvex/Types.h"
#include "threads/HostCall.h"

namespace sarnevo {

/// Reads one value from an object of the host. A null object, and a getter that throws, give 0 or null.
template <typename Object, typename Value, typename... Parameters>
Value Ask(Object* object, Value (Object::*getter)(Parameters...),
          std::type_identity_t<Parameters>... arguments) noexcept {
  Value value{};
  if (object != nullptr) {
    CallHost([&] { value = (object->*getter)(arguments...); });
  }
  return value;
}

/// Calls one operation that gives nothing; none of a null object.
template <typename Object, typename... Parameters>
void Tell(Object* object, void (Object::*operation)(Parameters...),
          std::type_identity_t<Parameters>... arguments) noexcept {
  if (object != nullptr) {
    CallHost([&] { (object->*operation)(arguments...); });
  }
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
  const char* const given = Ask(params, &Params::GetCustomSetting, index);
  return given != nullptr ? std::optional<std::string>(given) : std::nullopt;
}

}  // namespace sarnevo
