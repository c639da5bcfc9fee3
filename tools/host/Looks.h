#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "Diagnosis.h"

namespace kolvex_host {

/// Looks into several streams at the same time, each once, while the program goes on. Main thread; the looks run on
/// threads of their own, and the destructor breaks them off.
class Looks {
 public:
  /// What finds the reason; nothing when there is nothing wrong.
  using Find = std::function<std::optional<Reason>(std::stop_token)>;

  /// Begins a look into @p stream, soon, unless one has begun before.
  void Begin(std::size_t stream, Find find);
  bool HasBegun(std::size_t stream) const { return looks_.contains(stream); }
  /// All that have begun are done.
  bool AreDone();
  /// The result of a look; null while it runs, and when nothing is wrong.
  const Reason* Result(std::size_t stream) const;
  /// A look has ended, whatever its result.
  bool IsDone(std::size_t stream) const;
  /// Lets a later Begin look anew.
  void Forget(std::size_t stream) { looks_.erase(stream); }

 private:
  struct Look {
    Find find;
    std::optional<Reason> reason;  // the thread's until done
    std::atomic<bool> done{false};
    std::jthread thread;
  };
  void StartWaiting();

  std::map<std::size_t, Look> looks_;
};

}  // namespace kolvex_host
