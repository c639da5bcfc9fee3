#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sarnevo::platform {

/// A small block of memory that all processes of this machine and user share under one name.
///
/// The block is zero when its first user opens it and goes with the last one, so that nothing of a crashed process
/// outlives the others. Stays mapped for the object's life.
class SharedMemory {
 public:
  /// Longest name, in bytes without the terminator; of a longer one only so much counts.
  static constexpr std::size_t kMaxName = 100;

  /// Opens the block @p name of @p bytes, or makes it. All users of a name ask for the same size. When the
  /// system refuses, the object has no memory. Any thread may call.
  SharedMemory(const char* name, std::size_t bytes) noexcept;
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  /// Null when opening failed. Aligned to a page.
  void* Data() const noexcept { return data_; }

 private:
  std::array<char, kMaxName + 2> systemName_{};
  std::intptr_t handle_ = -1;  // the system's; open for as long as this object is a user of the block
  std::size_t size_;
  void* data_ = nullptr;
};

}  // namespace sarnevo::platform
