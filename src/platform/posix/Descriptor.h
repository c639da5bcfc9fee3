#pragma once

#include <unistd.h>

namespace sarnevo::platform {

/// Owns a file descriptor, or none.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool IsOpen() const noexcept { return descriptor_ >= 0; }
  int Get() const noexcept { return descriptor_; }

  void Reset(int descriptor) noexcept {
    Close();
    descriptor_ = descriptor;
  }

  /// False when the system reports that written data was lost.
  bool Close() noexcept {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor < 0 || ::close(descriptor) == 0;
  }

 private:
  int descriptor_;
};

}  // namespace sarnevo::platform
