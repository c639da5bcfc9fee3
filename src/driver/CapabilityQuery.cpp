#include "driver/CapabilityQuery.h"

#include <atomic>
#include <exception>
#include <utility>

#include "camera/CGroup1CameraProperties.h"
#include "camera/CGroup2CameraProperties.h"
#include "camera/CameraRequest.h"
#include "camera/DetectCameraGroup.h"
#include "http/RequestInterrupt.h"
#include "threads/HostCall.h"

namespace sarnevo {

namespace {

constexpr const char* kGroupNotFound = "Failed to get camera properties";
constexpr const char* kReadFailed = "Failed to get camera properties!";

std::shared_ptr<CBaseKolvexCameraProperties> MakeProperties(u32 group, u32 isNTSC) {
  if (group == 1) {
    return std::make_shared<CGroup1CameraProperties>(isNTSC);
  }
  return std::make_shared<CGroup2CameraProperties>(isNTSC);
}

}  // namespace

// What the thread works on, and owns too.
struct CapabilityQuery::Run {
  ipcapture::ICapabilityObserver* const observer;
  ipcapture::IIPCapabilities* const capabilities;
  const u32 isNTSC;
  const std::shared_ptr<CBaseKolvexCameraProperties> properties;

  // The thread's: destroyed, with the credentials in it, as soon as there is no further use for it.
  std::unique_ptr<Web::HttpRequest> request;

  // Set by the thread when all that is left is the call to the observer.
  std::atomic<bool> over{false};
};

bool CapabilityQuery::Init(ipcapture::ICapabilityObserver* observer, bool isNTSC) noexcept {
  if (queryObserver_ != nullptr) {
    return false;
  }
  queryObserver_ = observer;
  queryNTSC_ = isNTSC ? 1 : 0;
  return true;
}

bool CapabilityQuery::Start(const char* address, u16 port, const char* user, const char* password,
                            ipcapture::IIPCapabilities* capabilities) noexcept {
  if (IsRunning()) {
    return false;
  }
  try {
    queryCapabilities_ = capabilities;
    auto request = std::make_unique<CameraRequest>(address, port, user, password, timing_.detection);
    const u32 group = DetectCameraGroup(request.get());
    if (group == 0) {
      request.reset();
      if (queryObserver_ != nullptr) {
        CallHost([observer = queryObserver_] { observer->OnQueryFailed(QueryFailureOther, kGroupNotFound); });
      }
      return false;
    }
    request->SetTimeLimit(kNoLimit);
    if (!queryProperties_) {
      queryProperties_ = MakeProperties(group, queryNTSC_);
    }
    run_.reset(new Run{queryObserver_, queryCapabilities_, queryNTSC_, queryProperties_, std::move(request)});
    if (queryThread_.Start("Capability query", [run = run_] { Execute(*run); })) {
      return true;
    }
  } catch (const std::exception&) {
    // No memory: as when there is no thread.
  }
  queryProperties_.reset();
  run_.reset();
  return false;
}

// When a host begins the next query as soon as its observer is called, the old thread is on its way out, or still in the
// observer. It gets a moment and is then ended, so that Uninit has only one thread to wait for.
bool CapabilityQuery::IsRunning() noexcept {
  if (!queryThread_.IsAlive()) {
    return false;
  }
  if (!run_ || !run_->over.load(std::memory_order_acquire)) {
    return true;
  }
  queryThread_.End(stop_patience::kAnsweredQuery);
  return false;
}

void CapabilityQuery::Execute(Run& run) noexcept {
  u32 level = QueryFailureOther;
  bool done = false;
  try {
    const Web::RequestInterrupt interrupt(*run.request);
    done = run.properties->ReadProperties(run.request.get(), run.properties.get(), &level) &&
           run.properties->PublishCapabilities(run.capabilities, run.isNTSC, run.request.get());
  } catch (const std::exception&) {
    // No memory for a reply.
  }
  run.request.reset();
  run.over.store(true, std::memory_order_release);
  if (run.observer == nullptr) {
    return;
  }
  if (done) {
    CallHost([&run] { run.observer->OnQueryDone(); });
  } else {
    CallHost([&run, level] { run.observer->OnQueryFailed(level, kReadFailed); });
  }
}

void CapabilityQuery::Terminate() noexcept {
  if (queryProperties_) {
    queryProperties_->Abort();
  }
}

void CapabilityQuery::Uninit() noexcept {
  Terminate();
  queryThread_.End(timing_.stopWait);
  queryObserver_ = nullptr;
  queryCapabilities_ = nullptr;
  queryProperties_.reset();
  run_.reset();
}

}  // namespace sarnevo
