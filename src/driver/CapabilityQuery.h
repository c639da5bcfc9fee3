#pragma once

#include <memory>

#include "camera/CBaseKolvexCameraProperties.h"
#include "camera/RequestPolicy.h"
#include "kolvex/ICapabilityObserver.h"
#include "kolvex/IIPCapabilities.h"
#include "kolvex/Types.h"
#include "platform/Time.h"
#include "threads/StopPatience.h"
#include "threads/StoppableThread.h"

namespace sarnevo {

/// The times of a query; the defaults are those of the product.
struct QueryTiming {
  RequestPolicy detection = request_policy::kDetection;  ///< its time-out is that of all requests
  /// How long Uninit waits before it lets the thread go or interrupts it.
  platform::Milliseconds stopWait = stop_patience::kQuery;
};

/// The capability query of the four exports. A process has one, without a lock: the host calls it from
/// one thread at a time, which may be the query's own inside a call to the observer.
class CapabilityQuery {
 public:
  explicit CapabilityQuery(const QueryTiming& timing = {}) noexcept : timing_(timing) {}
  CapabilityQuery(const CapabilityQuery&) = delete;
  CapabilityQuery& operator=(const CapabilityQuery&) = delete;

  /// False, and nothing changes, when an observer is set.
  bool Init(ipcapture::ICapabilityObserver* observer, bool isNTSC) noexcept;
  /// True when the query's thread runs. False when the camera's group can't be found, which the observer hears; and,
  /// without a call of the observer, when there is no memory or no thread, or the query before still runs. A query
  /// is over as soon as its thread calls the observer, however long that call takes.
  bool Start(const char* address, u16 port, const char* user, const char* password,
             ipcapture::IIPCapabilities* capabilities) noexcept;
  void Terminate() noexcept;
  void Uninit() noexcept;

 private:
  struct Run;

  bool IsRunning() noexcept;
  static void Execute(Run& run) noexcept;

  const QueryTiming timing_;
  ipcapture::ICapabilityObserver* queryObserver_ = nullptr;  // the host's
  ipcapture::IIPCapabilities* queryCapabilities_ = nullptr;  // the host's
  u32 queryNTSC_ = 0;
  // Made for the first query and used by all of them until Uninit. A thread that was let go owns it, too.
  std::shared_ptr<CBaseKolvexCameraProperties> queryProperties_;
  std::shared_ptr<Run> run_;
  StoppableThread queryThread_;
};

}  // namespace sarnevo
