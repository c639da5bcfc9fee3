#include "camera/LiveKeeper.h"

#include <thread>

#include "Failure.h"
#include "Place.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;

namespace {

constexpr std::size_t kLongestName = 64;  // bytes; the file's name may be three times as long
constexpr std::size_t kMostCameras = 256;

Reply ToReply(const Failure& failure) {
  switch (failure.Code()) {
    case ExitCode::Usage:
      return Refusal(400, failure.what());
    case ExitCode::Output:
      return Refusal(507, failure.what());
    case ExitCode::Internal:
      return Refusal(500, failure.what());
    default:
      return Refusal(502, failure.what());
  }
}

}  // namespace

LiveKeeper::~LiveKeeper() {
  desk_.End();
  // Each may wait for its camera; together they wait as long as the slowest.
  std::vector<std::thread> threads;
  for (auto& [name, camera] : surroundings_.site->Cameras()) {
    threads.emplace_back([camera = surroundings_.site->Remove(name)]() mutable { camera.reset(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

void LiveKeeper::Start(const KnownCamera& camera) {
  if (surroundings_.site->Find(camera.config.name)) {
    throw Failure(ExitCode::Usage, "There are two cameras of the name " + camera.config.name + ".");
  }
  surroundings_.site->Add(
      camera.config.name,
      std::make_shared<LiveCamera>(LiveCamera::Surroundings{.library = surroundings_.library,
                                                            .site = surroundings_.site,
                                                            .store = surroundings_.store,
                                                            .simulator = surroundings_.simulator},
                                   camera));
}

kolvex_host::Capabilities LiveKeeper::Ask(const kolvex_host::QueryOptions& options) {
  try {
    return kolvex_host::RunQuery(surroundings_.library, options,
                                 [this](std::chrono::milliseconds limit) { return desk_.Pause(limit); });
  } catch (const Failure& failure) {
    if (failure.Code() != ExitCode::Login) {
      throw;
    }
    // Without the advice, which is for a command line.
    throw Failure(ExitCode::Login,
                  "The camera at " + options.place.Text() + " wants another user name or password.");
  }
}

KnownCamera LiveKeeper::Find(const Wanted& wanted) {
  if (wanted.address.find('@') != std::string::npos) {
    throw Failure(ExitCode::Usage,
                  "The address holds no user name or password: they have fields of their own.");
  }
  kolvex_host::QueryOptions options;
  options.place = kolvex_host::Place::Parse(wanted.address);
  options.login = {wanted.user, wanted.password};
  const kolvex_host::Capabilities found = Ask(options);
  KnownCamera camera{found.ToCamera(options.place.address, options.place.port, wanted.name), options.login};
  if (!wanted.codec.empty()) {
    camera.config.Set("codec", wanted.codec);
  }
  camera.config.Complete();
  return camera;
}

void LiveKeeper::Put(const Done& done, std::function<Reply()> job) {
  const bool taken = desk_.Put([done, job = std::move(job)] {
    try {
      done(job());
    } catch (const Failure& failure) {
      done(ToReply(failure));
    }
  });
  if (!taken) {
    done(Refusal(503, "Too many changes are waiting."));
  }
}

void LiveKeeper::Add(const Wanted& wanted, Done done) {
  Put(done, [this, wanted] { return AddNow(wanted); });
}

Reply LiveKeeper::AddNow(const Wanted& wanted) {
  if (wanted.name.size() > kLongestName) {
    return Refusal(400, "A name has at most 64 bytes.");
  }
  if (surroundings_.site->Cameras().size() >= kMostCameras) {
    return Refusal(409, "There are as many cameras as one console shows.");
  }
  if (!wanted.name.empty() && surroundings_.site->Find(wanted.name)) {
    return Refusal(409, "There is a camera of that name.");
  }
  const KnownCamera camera = Find(wanted);
  if (surroundings_.site->Find(camera.config.name)) {
    return Refusal(409, "There is a camera of that name.");
  }
  // A camera that can't be kept isn't shown either: it would be gone at the next start.
  surroundings_.store->Save(camera);
  Start(camera);
  const auto shown = surroundings_.site->Find(camera.config.name);
  return JsonReply(
      {{"state", nlohmann::json::parse(*shown->State().json)}, {"kept", surroundings_.store->IsKept()}}, 201);
}

void LiveKeeper::Rename(const std::string& from, const std::string& to, Done done) {
  Put(done, [this, from, to] {
    const auto camera = std::dynamic_pointer_cast<LiveCamera>(surroundings_.site->Find(from));
    if (!camera) {
      return Refusal(404, "There is no camera of that name.");
    }
    if (to.size() > kLongestName) {
      return Refusal(400, "A name has at most 64 bytes.");
    }
    if (surroundings_.site->Find(to)) {
      return Refusal(409, "There is a camera of that name.");
    }
    surroundings_.store->Rename(camera->Config(), to);
    surroundings_.site->Rename(from, to);
    return JsonReply({{"name", to}});
  });
}

void LiveKeeper::Remove(const std::string& name, Done done) {
  Put(done, [this, name] {
    const auto camera = std::dynamic_pointer_cast<LiveCamera>(surroundings_.site->Find(name));
    if (!camera) {
      return Refusal(404, "There is no camera of that name.");
    }
    surroundings_.store->Remove(camera->Config());
    surroundings_.site->Remove(name);
    return JsonReply({{"removed", name}});
    // The camera itself ends here, on this desk, unless somebody asks it something at this moment.
  });
}

void LiveKeeper::Second() {
  for (const auto& [name, camera] : surroundings_.site->Cameras()) {
    if (auto* const live = dynamic_cast<LiveCamera*>(camera.get())) {
      live->Second();
    }
  }
}

}  // namespace kolvex_console
