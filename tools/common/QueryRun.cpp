#include "QueryRun.h"

#include <atomic>
#include <mutex>
#include <thread>

#include "Diagnosis.h"
#include "Failure.h"
#include "ProgramEnd.h"
#include "kolvex/ICapabilityObserver.h"

namespace kolvex_host {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{20};

enum class Outcome {
  Pending,
  Done,
  NoCamera,  ///< no camera of the family was recognised
  WrongLogin,
  Unusable,    ///< it was recognised, but one of its replies can't be used
  NotStarted,  ///< the library couldn't start, for want of memory or a thread
};

/// One query. Shared with the thread that starts it, which outlives the wait for it when the camera keeps it.
class Query final : public sarnevo::ipcapture::ICapabilityObserver {
 public:
  Query(std::shared_ptr<Library> library, QueryOptions options)
      : library_(std::move(library)), functions_(library_->QueryFunctions()), options_(std::move(options)) {}

  /// The library finds out the camera's group on the thread that calls: up to a minute, with no way to cut it
  /// short. So that is a thread of its own.
  void Start() {
    starter_ = std::this_thread::get_id();
    starting_ = true;
    functions_.init(this, options_.ntsc ? 1 : 0);
    const bool runs = functions_.start(options_.address.c_str(), options_.port, options_.login.user.c_str(),
                                       options_.login.password.c_str(), &capabilities) != 0;
    if (!runs) {
      Settle(Outcome::NotStarted);  // unless the observer has heard why
    }
    starting_ = false;
  }
  /// After Start has returned. At most about 10 seconds.
  void End() { functions_.uninit(); }

  bool IsStarting() const { return starting_; }
  Outcome Result() const { return outcome_; }

  Capabilities capabilities;  // the query thread's until End has returned

 private:
  void OnQueryDone() override { Settle(Outcome::Done); }
  void OnQueryFailed(sarnevo::u32 level, const char*) override {
    if (level == sarnevo::QueryFailureLogin) {
      Settle(Outcome::WrongLogin);
    } else {
      Settle(std::this_thread::get_id() == starter_ ? Outcome::NoCamera : Outcome::Unusable);
    }
  }
  /// The first one counts.
  void Settle(Outcome outcome) {
    Outcome pending = Outcome::Pending;
    outcome_.compare_exchange_strong(pending, outcome);
  }

  const std::shared_ptr<Library> library_;
  const Library::Query functions_;
  const QueryOptions options_;
  std::thread::id starter_;  // written before the library knows the observer
  std::atomic<bool> starting_{true};
  std::atomic<Outcome> outcome_{Outcome::Pending};
};

[[noreturn]] void Explain(Outcome outcome, const QueryOptions& options) {
  const std::string place = options.address + ":" + std::to_string(options.port);
  switch (outcome) {
    case Outcome::WrongLogin:
      throw WrongLogin(place);
    case Outcome::NoCamera:
      throw WhyNoCamera(options.address, options.port, options.login);
    case Outcome::Unusable:
      throw Failure(ExitCode::Camera, "The camera at " + place +
                                          " is one of the family, but one of its replies can't be used: an "
                                          "unknown model, or a reply that was cut off.");
    default:
      throw Failure(ExitCode::Camera, "The library couldn't start the query: it lacks memory or a thread.");
  }
}

}  // namespace

Capabilities RunQuery(std::shared_ptr<Library> library, const QueryOptions& options, StopSignal& stop) {
  const auto query = std::make_shared<Query>(std::move(library), options);
  std::thread starter([query] { query->Start(); });
  const Clock::time_point end = Clock::now() + options.timeout;
  const char* why = nullptr;
  while (!why && (query->Result() == Outcome::Pending || query->IsStarting())) {
    if (stop.Wait(kTick)) {
      why = "The query was ended before the camera had answered.";
    } else if (Clock::now() >= end) {
      why = "The camera didn't answer in the time of --timeout.";
    }
  }
  if (query->IsStarting()) {
    // Nothing of ours hangs on that thread but what it shares with us; the program's end is its end.
    starter.detach();
    LeaveThreadBehind();
    throw Failure(ExitCode::Camera, why);
  }
  starter.join();
  query->End();
  if (why) {
    throw Failure(ExitCode::Camera, why);
  }
  if (query->Result() != Outcome::Done) {
    Explain(query->Result(), options);
  }
  return query->capabilities;
}

}  // namespace kolvex_host
