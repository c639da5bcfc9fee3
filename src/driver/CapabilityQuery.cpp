#include "driver/CapabilityQuery.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <utility>

#include "camera/CGroup1CameraProperties.h"
#include "camera/CGroup2CameraProperties.h"
#include "camera/DetectCameraGroup.h"
#include "http/HttpRequest.h"
#include "platform/CriticalSection.h"
#include "threads/HostCall.h"

namespace sarnevo {

namespace {

constexpr u32 kMaxConnections = 16;
constexpr u32 kCodePage = 0;
constexpr const char* kGroupNotFound = "Failed to get camera properties";
constexpr const char* kReadFailed = "Failed to get camera properties!";

std::shared_ptr<CBaseKolvexCameraProperties> MakeProperties(u32 group, u32 isNTSC) {
  if (group == 1) {
    return std::make_shared<CGroup1CameraProperties>(isNTSC);
  }
  return std::make_shared<CGroup2CameraProperties>(isNTSC);
}

}  // namespace

// What the thread works on. The thread's own share of it goes when the thread has ended, wherever that was.
struct CapabilityQuery::Run {
  ipcapture::ICapabilityObserver* const observer;
  ipcapture::IIPCapabilities* const capabilities;
  const u32 isNTSC;
  const std::shared_ptr<CBaseKolvexCameraProperties> properties;

  // Guards the pointer: the thread destroys the request, with the credentials in it, as soon as it has no
  // further use for it.
  platform::CriticalSection lock;
  std::unique_ptr<Web::HttpRequest> request;

  // Set by the thread when all that is left is to tell the observer.
  std::atomic<bool> over{false};

  void AbortRequest() noexcept {
    const std::lock_guard guard(lock);
    if (request) {
      request->Abort();
    }
  }
  void DestroyRequest() noexcept {
    const std::lock_guard guard(lock);
    request.reset();
  }
};

bool CapabilityQuery::Init(ipcapture::ICapabilityObserver* observer, bool isNTSC) noexcept {
  if (observer_ != nullptr) {
    return false;
  }
  observer_ = observer;
  isNTSC_ = isNTSC ? 1 : 0;
  return true;
}

bool CapabilityQuery::Start(const char* address, u16 port, const char* user, const char* password,
                            ipcapture::IIPCapabilities* capabilities) noexcept {
  if (IsRunning()) {
    return false;
  }
  try {
    capabilities_ = capabilities;
    auto request = std::make_unique<Web::HttpRequest>(timing_.httpTimeout, kMaxConnections, kCodePage);
    request->SetHost(address);
    request->SetPort(port);
    request->SetUserName(user);
    request->SetPassword(password);
    request->SetTimeLimit(timing_.detectionLimit);
    const u32 group = DetectCameraGroup(request.get());
    if (group == 0) {
      request.reset();
      if (observer_ != nullptr) {
        CallHost([observer = observer_] { observer->OnQueryFailed(QueryFailureOther, kGroupNotFound); });
      }
      return false;
    }
    request->SetTimeLimit(0);
    if (!properties_) {
      properties_ = MakeProperties(group, isNTSC_);
    }
    if (StartThread(std::move(request))) {
      return true;
    }
  } catch (const std::exception&) {
    // No memory: as when there is no thread.
  }
  properties_.reset();
  run_.reset();
  return false;
}

// A host that hears of the end of one query and begins the next at once finds the thread on its way out, or keeps
// it in its observer. It gets a moment and is then given up there, so that Uninit has one thread to wait for.
bool CapabilityQuery::IsRunning() noexcept {
  if (!thread_.IsAlive()) {
    return false;
  }
  if (!run_ || !run_->over.load(std::memory_order_acquire)) {
    return true;
  }
  if (thread_.IsCurrent() || thread_.Wait(timing_.stopMoment) != platform::WaitResult::Signalled) {
    thread_.Abandon(timing_.stopMoment);
  }
  return false;
}

bool CapabilityQuery::StartThread(std::unique_ptr<Web::HttpRequest> request) {
  run_.reset(new Run{observer_, capabilities_, isNTSC_, properties_, {}, std::move(request)});
  // The thread's share lies in its body and not on its stack, so that it also goes with a thread that was
  // given up in a callback and ends behind it.
  return thread_.Start("Capability query", [run = run_] { Execute(*run); });
}

// The thread. Nothing on its stack owns anything while the host is called.
void CapabilityQuery::Execute(Run& run) noexcept {
  const HostGate& host = run.properties->HostAccess();
  u32 level = QueryFailureOther;
  const bool done =
      Read(run, level) && run.properties->PublishCapabilities(run.capabilities, run.isNTSC, run.request.get());
  run.DestroyRequest();
  run.over.store(true, std::memory_order_release);
  if (run.observer == nullptr) {
    return;
  }
  if (done) {
    host.Pass([&run] { run.observer->OnQueryDone(); });
  } else {
    host.Pass([&run, level] { run.observer->OnQueryFailed(level, kReadFailed); });
  }
}

bool CapabilityQuery::Read(Run& run, u32& level) noexcept {
  try {
    return run.properties->ReadProperties(run.request.get(), run.properties.get(), &level);
  } catch (const std::exception&) {
    return false;  // no memory for a reply
  }
}

void CapabilityQuery::Terminate() noexcept {
  if (properties_) {
    properties_->Abort();
  }
}

void CapabilityQuery::Uninit() noexcept {
  if (properties_) {
    properties_->Abort();
  }
  EndThread();
  observer_ = nullptr;
  capabilities_ = nullptr;
  properties_.reset();
  run_.reset();
}

void CapabilityQuery::EndThread() noexcept {
  if (!thread_.HasHandle()) {
    return;
  }
  if (thread_.IsCurrent() || thread_.Wait(timing_.stopWait) != platform::WaitResult::Signalled) {
    // From here on the host's objects are out of the thread's reach. Its request is closed under it, so that
    // it ends; where it stands in a callback it is given up and ends behind that.
    if (properties_) {
      properties_->HostAccess().Close();
    }
    if (run_) {
      run_->AbortRequest();
    }
    if (thread_.IsCurrent() || thread_.Wait(timing_.stopMoment) != platform::WaitResult::Signalled) {
      thread_.Abandon(timing_.stopMoment);
    }
  }
  thread_.Release();
}

}  // namespace sarnevo
