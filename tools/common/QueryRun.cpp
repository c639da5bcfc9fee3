#include "QueryRun.h"

#include <atomic>
#include <optional>
#include <stop_token>
#include <thread>

#include <fmt/format.h>

#include "Diagnosis.h"
#include "Failure.h"
#include "ProgramEnd.h"
#include "kolvex/ICapabilityObserver.h"

namespace kolvex_host {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{20};
constexpr milliseconds kLookAfter{2000};  // an ordinary query takes a tenth of a second

enum class Outcome {
  Pending,
  Done,
  NoCamera,  ///< no camera of the family was recognised
  WrongLogin,
  Unusable,    ///< it was recognised, but one of its replies can't be used
  NotStarted,  ///< the library couldn't start, for want of memory or a thread
};

/// The library's query is one for the whole process.
std::atomic<bool> queryRuns{false};

/// One query. Shared with the thread that starts it, which outlives the wait for it when the camera keeps it.
class Query final : public sarnevo::ipcapture::ICapabilityObserver {
 public:
  Query(std::shared_ptr<Library> library, QueryOptions options)
      : library_(std::move(library)), functions_(library_->QueryFunctions()), options_(std::move(options)) {}

  /// The library finds out the camera's group on the thread that calls: up to a minute, with no way to cut it
  /// short. So that is a thread of its own.
  void Start() {
    starter_ = std::this_thread::get_id();
    functions_.init(this, options_.ntsc ? 1 : 0);
    const bool runs =
        functions_.start(options_.place.address.c_str(), options_.place.port, options_.login.user.c_str(),
                         options_.login.password.c_str(), &capabilities) != 0;
    if (!runs) {
      Settle(Outcome::NotStarted);  // unless the observer has heard why
    }
    if (stage_.exchange(Stage::Started) == Stage::Abandoned) {
      End();
    }
  }
  /// False when Start has returned, so that it is the caller who ends the query; else Start will do it.
  bool Abandon() {
    Stage starting = Stage::Starting;
    return stage_.compare_exchange_strong(starting, Stage::Abandoned);
  }
  /// After Start has returned. At most about 10 seconds.
  void End() {
    functions_.uninit();
    queryRuns = false;
  }

  bool IsStarting() const { return stage_ == Stage::Starting; }
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
  enum class Stage { Starting, Started, Abandoned };
  std::atomic<Stage> stage_{Stage::Starting};
  std::atomic<Outcome> outcome_{Outcome::Pending};
};

std::optional<Reason> Look(const QueryOptions& options, std::stop_token stop) {
  CameraConfig camera;
  camera.address = options.place.address;
  camera.port = options.place.port;
  return Diagnosis(camera, options.login).WhyNoAnswer(std::move(stop));
}

/// The library waits for a dead address far longer than a person does. Only what is certain ends a query early: a
/// camera may be slow.
bool IsCertain(const std::optional<Reason>& early) {
  return early && (early->cause == Reason::Cause::Nobody || early->cause == Reason::Cause::Refused);
}

/// Why a query had no good end. @p early is what a look during the query has found.
Failure Explain(Outcome outcome, const QueryOptions& options, const std::optional<Reason>& early,
                std::stop_token stop) {
  if (outcome == Outcome::Pending && early) {
    return {early->exit, early->Sentence()};  // another look would find the same, and takes seconds
  }
  if (outcome == Outcome::NotStarted) {
    return {ExitCode::Camera, "The library couldn't start the query: it lacks memory or a thread."};
  }
  if (const auto reason = Look(options, std::move(stop))) {
    return {reason->exit, reason->Sentence()};
  }
  if (outcome == Outcome::Pending) {
    return {ExitCode::Camera, fmt::format("The camera at {} didn't answer in time: restart it, or give it more "
                                          "time.",
                                          options.place.Text())};
  }
  return {ExitCode::Camera,
          fmt::format("The camera at {} is one of the family, but one of its replies can't be "
                      "used: it is an unknown model, or a reply was cut off.",
                      options.place.Text())};
}

}  // namespace

bool Beside(const std::function<void(std::stop_token)>& step, const Waits& wait) {
  std::atomic<bool> done{false};
  std::jthread thread([&](std::stop_token stop) {
    step(std::move(stop));
    done = true;
  });
  while (!done) {
    if (wait(kTick)) {
      return false;  // the thread's end asks it to stop and waits for it
    }
  }
  return true;
}

Capabilities RunQuery(std::shared_ptr<Library> library, const QueryOptions& options, const Waits& wait) {
  const auto query = std::make_shared<Query>(std::move(library), options);
  if (queryRuns.exchange(true)) {
    throw Failure(ExitCode::Camera, "Another query still waits for its camera: try again in a minute.");
  }
  std::thread starter([query] { query->Start(); });
  const Clock::time_point start = Clock::now();
  bool wanted = true;
  bool looked = false;
  std::optional<Reason> early;
  while (wanted && !IsCertain(early) && (query->Result() == Outcome::Pending || query->IsStarting()) &&
         Clock::now() - start < options.timeout) {
    wanted = !wait(kTick);
    if (wanted && !looked && Clock::now() - start > kLookAfter) {
      looked = true;
      wanted = Beside([&](std::stop_token stop) { early = Look(options, stop); }, wait);
    }
  }
  if (query->Abandon()) {
    // Nothing of ours hangs on that thread but what it shares with us; the program's end is its end.
    starter.detach();
    LeaveThreadBehind();
  } else {
    starter.join();
    query->End();
    if (query->Result() == Outcome::Done) {
      return query->capabilities;
    }
  }
  std::optional<Failure> failure;
  wanted =
      wanted &&
      Beside([&](std::stop_token stop) { failure = Explain(query->Result(), options, early, stop); }, wait);
  throw wanted ? Failure(*failure)
               : Failure(ExitCode::Camera, "The query was ended before the camera had answered.");
}

}  // namespace kolvex_host
