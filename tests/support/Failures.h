#pragma once

namespace kolvex_test {

/// The calling thread runs code of the library: what it takes counts, and may fail. Threads that it makes
/// inherit that.
inline constinit thread_local bool inLibrary = false;

/// Enters the library, or the host's code inside a callback, until the end of the scope.
class Side {
 public:
  explicit Side(bool library) : before_(inLibrary) { inLibrary = library; }
  ~Side() { inLibrary = before_; }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

 private:
  const bool before_;
};

/// What can be taken from the library. FailingFiles.cpp replaces the C library's functions for files in the
/// program that it is linked into, FailingResources.cpp those for all the rest. A write that fails has taken half
/// of its bytes first, as it does on a disk that fills up.
enum class Resource { Memory, Socket, Bind, Connect, Thread, Open, Write, Flush, Rename, Count };

/// From here on the @p n th request (from 1) for @p resource fails, and with @p onward all after it until Heal.
void Fail(Resource resource, long n, bool onward);
void Heal();
/// How many requests have failed.
long Strikes();
/// Blocks that the library has taken and not given back.
long LiveBlocks();
long LiveBytes();

/// For the functions that are replaced: true when this request is one that fails.
bool Fails(Resource resource);

}  // namespace kolvex_test
