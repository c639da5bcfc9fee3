#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Shares ownership of an object: the last pointer to it destroys it. The counter isn't atomic, so that
/// pointers to one object are copied and released by one thread at a time.
/// @tparam T  has a virtual destructor.
template <typename T>
class TSmartPtr {
 public:
  TSmartPtr() = default;
  TSmartPtr(const TSmartPtr& other) : counter_(other.counter_), object_(other.object_) {
    if (counter_ != nullptr) {
      ++*counter_;
    }
  }
  virtual ~TSmartPtr() { Release(); }

  TSmartPtr& operator=(const TSmartPtr& other) {
    if (this != &other && (counter_ != other.counter_ || object_ != other.object_)) {
      Release();
      counter_ = other.counter_;
      object_ = other.object_;
      if (counter_ != nullptr) {
        ++*counter_;
      }
    }
    return *this;
  }

  /// Takes an object over. Does nothing for null, and while this pointer holds one.
  void Attach(T* object) {
    if (object != nullptr && counter_ == nullptr) {
      counter_ = new i32(1);
      object_ = object;
    }
  }

  /// Leaves this pointer empty; destroys the object when this was its last pointer.
  void Release() {
    i32* const counter = counter_;
    T* const object = object_;
    counter_ = nullptr;
    object_ = nullptr;
    if (counter != nullptr && --*counter == 0) {
      delete object;
      delete counter;
    }
  }

  T* Get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  i32* counter_ = nullptr;  // on the heap, shared by all pointers to the object
  T* object_ = nullptr;
};

}  // namespace sarnevo
