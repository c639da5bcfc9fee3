#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Capabilities.h"
#include "Library.h"
#include "QueryRun.h"
#include "web/Desk.h"
#include "camera/LiveCamera.h"
#include "camera/Store.h"
#include "hub/Doors.h"
#include "hub/Site.h"

namespace kolvex_console {

/// Makes and ends the cameras of the console, finds out what is at an address, and keeps them in the folder.
/// All of that happens on one desk, one after the other: the library has one query at a time.
class LiveKeeper final : public Keeper {
 public:
  struct Surroundings {
    std::shared_ptr<kolvex_host::Library> library;
    std::shared_ptr<Site> site;
    std::shared_ptr<Store> store;
    std::string simulator;  ///< of LiveCamera
  };
  explicit LiveKeeper(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}
  /// Ends all cameras, at the same time.
  ~LiveKeeper() override;

  /// A camera that is known. Before the server runs. Throws Failure.
  void Start(const KnownCamera& camera);

  void Add(const Wanted& wanted, Done done) override;
  void Rename(const std::string& from, const std::string& to, Done done) override;
  void Remove(const std::string& name, Done done) override;

  /// Once a second, on the server's thread.
  void Second();

 private:
  void Put(const Done& done, std::function<Reply()> job);
  Reply AddNow(const Wanted& wanted);
  kolvex_host::Capabilities Ask(const kolvex_host::QueryOptions& options);
  /// The record of what is at an address. Throws Failure.
  KnownCamera Find(const Wanted& wanted);

  const Surroundings surroundings_;
  Desk desk_;
};

}  // namespace kolvex_console
