#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hub/Site.h"
#include "hub/Viewers.h"
#include "web/Http.h"

namespace kolvex_console {

/// Adds, renames and removes cameras; see LiveKeeper. Any thread; takes its time and answers later.
class Keeper {
 public:
  using Done = std::function<void(Reply)>;
  virtual ~Keeper() = default;
  struct Wanted {
    std::string address;  ///< IPv4 or a name, with ":PORT" when that isn't 80
    std::string name;     ///< empty: the address
    std::string user;
    std::string password;
    std::string codec;  ///< "mjpeg", "mpeg4" or empty
  };
  virtual void Add(const Wanted& wanted, Done done) = 0;
  virtual void Rename(const std::string& from, const std::string& to, Done done) = 0;
  virtual void Remove(const std::string& name, Done done) = 0;
};

/// A file of the page, part of the program.
struct PageFile {
  const char* path;  ///< "/app.js"
  const char* type;
  std::span<const unsigned char> content;
};
std::span<const PageFile> PageFiles();

/// The doors of the server: which request does what. docs/console.md lists them for their users.
///
/// On the server's thread, but the answers of cameras and keeper come on theirs.
class DoorTable {
 public:
  struct Outside {
    std::shared_ptr<Keeper> keeper;
    std::function<std::string()> metrics;
  };
  DoorTable(std::shared_ptr<Site> site, Outside outside)
      : site_(std::move(site)), outside_(std::move(outside)) {}

  void Open(const Request& request, const Respond& respond);
  /// Now and then: answers those who wait for a picture.
  void Tick();

 private:
  struct Visit {
    const Request& request;
    const Respond& respond;
    std::shared_ptr<Camera> camera;  // of /cameras/NAME/...
    nlohmann::json body;             // of a POST
  };
  struct Door;
  struct Waiter {
    std::unique_ptr<Feed::Look> look;
    std::shared_ptr<Camera> camera;
    std::chrono::system_clock::time_point notBefore;
    std::chrono::steady_clock::time_point end;
    Respond respond;
  };
  static const Door kDoors[];

  void Serve(const Door& door, Visit visit);

  void ListCameras(Visit& visit);
  void AddCamera(Visit& visit);
  void ChangeCamera(Visit& visit);
  void ShowState(Visit& visit);
  void ShowHistory(Visit& visit);
  void ShowSnapshot(Visit& visit);
  void ShowMjpeg(Visit& visit);
  void ShowMatroska(Visit& visit);
  void ShowThumbnail(Visit& visit);
  void Move(Visit& visit);
  void SetOutput(Visit& visit);
  void UsePosition(Visit& visit);
  void Simulate(Visit& visit);
  void ShowWall(Visit& visit);
  void HearOfWall(Visit& visit);
  void ShowEvents(Visit& visit);
  void ShowMetrics(Visit& visit);

  bool AnswerWaiter(const Waiter& waiter, std::chrono::steady_clock::time_point now) const;

  const std::shared_ptr<Site> site_;
  const Outside outside_;
  std::vector<Waiter> waiters_;  // for a picture, at most one per seat of the server
  // Walls whose viewers say what they have shown, by the viewers' own words for themselves; some have ended.
  std::map<std::string, std::weak_ptr<WallOutlet>> walls_;
};

}  // namespace kolvex_console
