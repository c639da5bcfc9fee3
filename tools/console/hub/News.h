#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "hub/Site.h"

namespace kolvex_console {

/// What one viewer hasn't been told yet of all that changes: the states of cameras, which cameras there are, the
/// log. States that changed twice meanwhile are told once, so a slow viewer has no queue that grows.
///
/// On the server's thread.
class News {
 public:
  explicit News(std::shared_ptr<Site> site) : site_(std::move(site)) {}
  /// The next event as JSON text with a member "event":
  ///   camera   "state", as GET /cameras/NAME gives it
  ///   cameras  "names": which there are, in their order; after a change of it
  ///   log      "lines": number, time, camera, text
  ///   tick     nothing; once a second, so that silence means a lost connection
  /// False when the viewer knows everything.
  bool Next(std::string& event);

 private:
  const std::shared_ptr<Site> site_;
  std::uint64_t seen_ = 0;                           // the site's version when all had been told
  std::string names_;                                // the last list told
  std::map<const Camera*, std::uint64_t> versions_;  // of the states told
  std::uint64_t line_ = 0;                           // the last one told
  std::chrono::steady_clock::time_point tick_{};     // of the last one
};

}  // namespace kolvex_console
