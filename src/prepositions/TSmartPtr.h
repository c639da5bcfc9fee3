#pragma once

#include <memory>

namespace sarnevo {

/// Shares ownership of an object: the last pointer to it destroys it.
template <typename T>
class TSmartPtr : public std::shared_ptr<T> {
 public:
  virtual ~TSmartPtr() = default;

  /// Takes an object over, and destroys it where there is no memory for that. Does nothing for null, and while this
  /// pointer holds one.
  void Attach(T* object) {
    if (object != nullptr && !*this) {
      this->reset(object);
    }
  }
  /// Leaves this pointer empty; destroys the object when this was its last pointer.
  void Release() noexcept { this->reset(); }

  T* Get() const noexcept { return this->get(); }
};

}  // namespace sarnevo
