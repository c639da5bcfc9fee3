// What is between the server and the driver: the head's watch, the folder, the desk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <utility>

#include "Failure.h"
#include "web/Desk.h"
#include "camera/Head.h"
#include "camera/Store.h"
#include "support/Eventually.h"
#include "support/TempFolder.h"

namespace {

using namespace kolvex_console;
using kolvex_host::ExitCode;
using kolvex_host::Failure;
using kolvex_test::Eventually;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A head that writes down what it is told.
class FakeHead final : public sarnevo::IIPPTZApi {
 public:
  sarnevo::u32 IsPTZAvailable() override { return 1; }
  sarnevo::i32 StartMove(sarnevo::u32 direction, sarnevo::i32 speed) override {
    return Note("move " + std::to_string(direction) + " " + std::to_string(speed));
  }
  sarnevo::i32 StopMove() override {
    const sarnevo::i32 done = Note("stop");
    if (const auto report = std::exchange(failure, nullptr)) {
      report();
    }
    return done;
  }
  sarnevo::i32 Center(sarnevo::u32, sarnevo::u32, sarnevo::u32) override { return 0; }
  sarnevo::i32 ZoomIn(sarnevo::i32) override { return Note("zoom in"); }
  sarnevo::i32 ZoomOut(sarnevo::i32) override { return Note("zoom out"); }
  sarnevo::i32 Unzoom(sarnevo::u32) override { return 0; }
  sarnevo::i32 AreaZoom(sarnevo::u32, sarnevo::u32, sarnevo::u32, sarnevo::u32) override { return 0; }
  sarnevo::i32 FocusNear(sarnevo::u32 speed) override { return speed == 0 ? sarnevo::PtzDone : Note("near"); }
  sarnevo::i32 FocusFar(sarnevo::u32) override { return Note("far"); }
  sarnevo::i32 IrisOpen(sarnevo::u32 speed) override { return speed == 0 ? sarnevo::PtzDone : Note("open"); }
  sarnevo::i32 IrisClose(sarnevo::u32) override { return Note("close"); }
  sarnevo::i32 GetCapabilities(sarnevo::CPtzCapabilities*) override { return 0; }
  sarnevo::u32 GetPrepositionCount() override { return 0; }
  sarnevo::i32 GetPrepositionName(sarnevo::u32, char*, sarnevo::u32) override { return 0; }
  sarnevo::i32 SelectPreposition(sarnevo::u32, const char*) override { return 0; }
  sarnevo::i32 AddPreposition(const char*) override { return 0; }
  sarnevo::i32 DeletePreposition(const char*) override { return 0; }
  sarnevo::i32 GetCurrentPreposition(char*, sarnevo::u32) override { return 0; }

  std::string Heard() const {
    const std::lock_guard guard(lock_);
    return heard_;
  }

  /// Called by the next stop, as the library reports a failed one. Set while nothing is asked.
  std::function<void()> failure;

 private:
  sarnevo::i32 Note(const std::string& line) {
    const std::lock_guard guard(lock_);
    heard_ += line + "; ";
    return sarnevo::PtzDone;
  }
  mutable std::mutex lock_;
  std::string heard_;  // guarded by lock_
};

const kolvex_host::Movement& Movement(const char* name) { return *kolvex_host::FindMovement(name); }

TEST(ConsoleHead, StopsWhenNobodyWantsItToGoOn) {
  static_assert(Head::kWishHolds == milliseconds(1000));
  FakeHead api;
  std::atomic<int> stops{0};
  Head head(api, [&] { ++stops; });
  // Repeated, it goes on for longer than one wish holds, and the order isn't sent again. A busy machine may leave a
  // pause as long as a wish; then once more.
  std::string heard;
  std::chrono::steady_clock::time_point silent;
  for (int attempt = 0; attempt < 5 && heard != "move 0 5; "; ++attempt) {
    const std::size_t before = api.Heard().size();
    const auto start = std::chrono::steady_clock::now();
    do {
      silent = std::chrono::steady_clock::now();
      head.Want(Movement("left"), 5);
      std::this_thread::sleep_for(milliseconds(100));  // the pace of a browser
    } while (silent - start < Head::kWishHolds + milliseconds(400));
    heard = api.Heard().substr(before);
    ASSERT_TRUE(Eventually([&] { return api.Heard().ends_with("stop; ") && head.Moving().empty(); }));
  }
  EXPECT_EQ(heard, "move 0 5; ");
  const auto waited = std::chrono::steady_clock::now() - silent;
  EXPECT_GE(waited, Head::kWishHolds);
  EXPECT_LT(waited, Head::kWishHolds + milliseconds(10'000)) << "a head that runs on";
  EXPECT_TRUE(Eventually([&] { return stops > 0; }));
  EXPECT_THAT(api.Heard(), testing::EndsWith("move 0 5; stop; "));
}

TEST(ConsoleHead, FollowsTheNewestWishAndStopsALensBeforeAMovement) {
  std::string heard;
  const std::string expected = "move 2 7; move 7 7; stop; near; stop; zoom in; stop; ";
  // On a busy machine a wish may run out in between, but not each time.
  for (int attempt = 0; attempt < 5 && heard != expected; ++attempt) {
    FakeHead api;
    {
      Head head(api, [] {});
      for (const auto& [name, order] : {std::pair("up", "move 2 7; "),
                                        {"right-down", "move 7 7; "},
                                        {"focus-near", "near; "},
                                        {"zoom-in", "zoom in; "}}) {
        head.Want(Movement(name), 7);
        EXPECT_TRUE(Eventually([&] { return api.Heard().find(order) != std::string::npos; })) << api.Heard();
      }
    }
    heard = api.Heard();
  }
  EXPECT_EQ(heard, expected) << "the end of the server is a stop";
}

TEST(ConsoleHead, IsStoppedAtOnceAfterAServerThatWasKilled) {
  FakeHead api;
  const Head head(
      api, [] {}, true);
  EXPECT_TRUE(Eventually([&] { return api.Heard() == "stop; "; }));
}

TEST(ConsoleHead, RepeatsAStopThatFailed) {
  FakeHead api;
  Head head(api, [] {});
  head.Want(Movement("left"), 5);
  ASSERT_TRUE(Eventually([&] { return api.Heard() == "move 0 5; "; }));
  api.failure = [&] { head.NoteFailure(); };
  head.Stop();
  EXPECT_TRUE(Eventually([&] { return api.Heard() == "move 0 5; stop; stop; "; })) << api.Heard();
}

KnownCamera MakeCamera(const std::string& name, const std::string& address, const std::string& password) {
  KnownCamera camera{kolvex_host::ParseCamera(address + ",group=1"), {"admin", password}};
  camera.config.name = name;
  camera.config.Complete();
  return camera;
}

TEST(ConsoleStore, KeepsCamerasAsFilesOfTheirOwnerAndLeavesBrokenOnesOut) {
  const TempFolder folder;
  Store store(folder / "cameras");
  store.Save(MakeCamera("Yard / \"north\" ../x", "192.0.2.7", "one"));
  store.Save(MakeCamera("Gate", "192.0.2.8:8080", "two"));
  store.Save(MakeCamera("Gate 2", "192.0.2.8:8080", "two"));
  store.Save(MakeCamera("credentials", "192.0.2.9", "three"));
  folder.Write("cameras/broken.json", "{\"address\": ");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "cameras")) {
    names.push_back(entry.path().filename());
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    if (names.back() != "broken.json") {
      EXPECT_EQ(status.st_mode & 0777U, 0600U) << names.back();
      EXPECT_EQ(folder.Read("cameras/" + names.back()).find("two") != std::string::npos,
                names.back() == "credentials.json")
          << "no camera file holds a password: " << names.back();
    }
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("Yard%20%2f%20%22north%22%20%2e%2e%2fx.json", "Gate.json",
                                                   "Gate%202.json", "%63redentials.json", "credentials.json",
                                                   "lock", "broken.json"));

  store.Remove(MakeCamera("credentials", "192.0.2.9", "").config);
  const auto load = [&] {
    std::vector<std::string> skipped;
    std::string all;
    for (const KnownCamera& camera : store.Load(skipped)) {
      all += camera.config.name + " at " + camera.config.address + ":" + std::to_string(camera.config.port) +
             " with " + camera.login.password + "; ";
    }
    EXPECT_EQ(skipped.size(), 1U);
    return all;
  };
  EXPECT_EQ(load(),
            "Gate at 192.0.2.8:8080 with two; Gate 2 at 192.0.2.8:8080 with two; "
            "Yard / \"north\" ../x at 192.0.2.7:80 with one; ");
  store.SaveThumbnail("Gate", "Square", "jpeg");
  store.Rename(MakeCamera("Gate", "192.0.2.8:8080", "two").config, "Door");
  EXPECT_EQ(*store.Thumbnail("Door", "Square"), "jpeg");
  store.Remove(MakeCamera("Gate 2", "192.0.2.8:8080", "").config);
  EXPECT_EQ(load(), "Door at 192.0.2.8:8080 with two; Yard / \"north\" ../x at 192.0.2.7:80 with one; ");
  store.Remove(MakeCamera("Door", "192.0.2.8:8080", "").config);
  EXPECT_THAT(folder.Read("cameras/credentials.json"), Not(HasSubstr("two")))
      << "the last one takes its login along";
}

TEST(ConsoleStore, ChangesNothingWhenTheFolderCantBeWritten) {
  const TempFolder folder;
  folder.Write("file", "");
  EXPECT_THROW(Store(folder / "file/cameras"), Failure);
  Store store(folder / "cameras");
  store.Save(MakeCamera("Gate", "192.0.2.8", "one"));
  const std::string before = folder.Read("cameras/credentials.json");
  // A folder in the place of the file: no user, not even root, can write it.
  std::filesystem::create_directory(folder / "cameras/Yard.json");
  try {
    store.Save(MakeCamera("Yard", "192.0.2.8", "one"));
    ADD_FAILURE() << "it was taken";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::Output);
    EXPECT_THAT(failure.what(), HasSubstr("Yard.json can't be written: "));
  }
  EXPECT_EQ(folder.Read("cameras/credentials.json"), before);
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder / "cameras")) {
    ++files;
  }
  EXPECT_EQ(files, 4U) << "nothing half-written stays";
}

TEST(ConsoleStore, IsForOneServerAndItsOwnerAlone) {
  const TempFolder folder;
  folder.Write("photo.jpg", "");
  chmod(folder.Path().c_str(), 0755);
  EXPECT_THROW(Store(folder.Path()), Failure) << "it holds other things, and others may read it";
  const std::string path = folder / "cameras";
  std::filesystem::create_directories(path + "/Yard.positions");
  folder.Write("cameras/credentials.json", "{}");
  for (const std::string& open : {path, path + "/Yard.positions"}) {
    chmod(open.c_str(), 0755);
  }
  {
    const Store store(path);
    EXPECT_FALSE(store.WasKilled());
    EXPECT_THROW(Store{path}, Failure) << "a second server";
  }
  for (const std::string& closed : {path, path + "/Yard.positions"}) {
    struct stat status {};
    EXPECT_EQ(stat(closed.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U) << closed;
  }
  folder.Write("cameras/lock", "running\n");  // what a killed server leaves
  EXPECT_TRUE(Store(path).WasKilled());
  EXPECT_FALSE(Store(path).WasKilled()) << "the one before ended in good order";
}

TEST(ConsoleDesk, DropsWhatHasNotBegunAtItsEnd) {
  std::string done;
  {
    Desk desk;
    std::atomic<bool> runs{false};
    desk.Put([&] {
      runs = true;
      done += desk.Pause(std::chrono::seconds(60)) ? "woken " : "slept ";
    });
    int taken = 0;
    while (desk.Put([&] { done += "late "; })) {
      ASSERT_LT(++taken, 1000) << "it is bounded";
    }
    ASSERT_TRUE(Eventually([&] { return runs.load(); }));
  }
  EXPECT_EQ(done, "woken ");
}

}  // namespace
