#pragma once

#include <memory>
#include <utility>

namespace kolvex_test {

/// An object as its owner holds it: End runs when the pointer goes, and the memory goes with the last thread inside.
template <typename Object, typename... Arguments>
std::shared_ptr<Object> MakeOwned(Arguments&&... arguments) {
  auto object = std::make_shared<Object>(std::forward<Arguments>(arguments)...);
  return {object.get(), [object](Object*) { object->End(); }};
}

}  // namespace kolvex_test
