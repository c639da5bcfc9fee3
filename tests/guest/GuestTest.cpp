// The library as a guest: loaded at run time into this process, which plays the recording server, run through
// all that it can do against simulated cameras in a process of their own, and unloaded. What belongs to the
// host must be as it was, and the functions that would change it must never have been called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <set>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Witness.h"
#include "support/LoadedHost.h"
#include "support/HostLog.h"
#include "support/ProgramRun.h"

namespace kolvex_test {
namespace {

namespace fs = std::filesystem;

// The password is in this process's memory only while a host has to have it there: wherever else it is, its
// letters are turned, so that it isn't found where it is only looked for.
char Turned(char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? 'a' + (c - 'a' + 13) % 26 : c); }

constexpr const char* kUser = "admin";
constexpr std::string_view kPassword = "tylzoebiankhgrmwvcbqxjvudrsfnp";
// Freeing memory writes over its begin, so that the password's second half is looked for. It is in the Base64
// form of user and password in a place of its own.
constexpr std::string_view kSought = "wvcbqxjvudrsfnp";
constexpr std::string_view kSoughtInBase64 = "nzyjo2Req2ybpWVzp2Fw";
std::array<char, kPassword.size() + 1> inTheClear{};

// Whether an input's change doesn't return at the host with the camera of group 1.
std::atomic<bool> held{false};

void Unveil() { std::ranges::transform(kPassword, inTheClear.begin(), Turned); }
void Wipe() { explicit_bzero(inTheClear.data(), inTheClear.size()); }

bool IsIn(std::string_view text, std::string_view sought) {
  const auto same = [](char there, char turned) { return Turned(there) == turned; };
  return std::search(text.begin(), text.end(), sought.begin(), sought.end(), same) != text.end();
}

bool IsPasswordIn(std::string_view text) { return IsIn(text, kSought) || IsIn(text, kSoughtInBase64); }

// The parts of this process's memory in which the password still lies, a line each.
[[maybe_unused]] std::string MemoryWithPassword() {
  std::ifstream maps("/proc/self/maps");
  std::string text;
  for (std::string line; std::getline(maps, line);) {
    const auto from = std::stoull(line, nullptr, 16),
               to = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
    if (line.find(" rw-p ") != line.npos && IsPasswordIn({reinterpret_cast<const char*>(from), to - from})) {
      text += line + "\n";
    }
  }
  return text;
}

// Group 1 at 127.0.1.1, group 2 at 127.0.2.1.
struct Cameras : ProgramRun {
  Cameras() : ProgramRun(KOLVEX_CAMERA) {
    Start(
        "--quiet --camera group=1,address=127.0.1.1,inputs=2,outputs=2,serial=2 "
        "--camera group=2,address=127.0.2.1,inputs=2,outputs=2,codec=mpeg4",
        "export KOLVEX_CAMERA_USER=" + std::string(kUser) + " KOLVEX_CAMERA_PASSWORD=$(echo " +
            std::string(kPassword) + " | tr a-z n-za-m)");
    EXPECT_TRUE(WaitForOutput("ready\n"));
  }
};

/// One copy of the library in use: a driver for each camera, with video, digital I/O and PTZ. Unloads it at the
/// end. What goes wrong fails the test that runs.
class GuestRun {
 public:
  explicit GuestRun(const std::string& path, int flags = 0)
      : library_(path.c_str(), RTLD_NOW | RTLD_LOCAL | flags) {}
  ~GuestRun() {
    library_.uninit();
    dlclose(library_.handle);
  }

  /// Whether a capability query begins, which leaves it begun.
  bool BeginsQueries() { return library_.init(&hosts_[0], 0) != 0; }

  /// A capability query from its begin to its end. True when it described the whole camera.
  bool Query(const char* address) {
    Host& host = hosts_[0];
    host.queryEnd = 0;
    host.told = 0;
    BeginsQueries();
    Unveil();
    const bool started = library_.start(address, 80, kUser, inTheClear.data(), &host) != 0;
    Wipe();
    EXPECT_TRUE(Eventually([&] { return host.queryEnd != 0; }));
    library_.uninit();
    return started && host.queryEnd == 1 && host.told != 0;
  }

  /// Opens the drivers and moves a head, stores a position and forgets it.
  void Open() {
    for (Host& host : hosts_) {
      host.driver = library_.create();
      Unveil();
      EXPECT_TRUE(host.driver->Open(&host, &host, &host));
      Wipe();
    }
    EXPECT_EQ(Head().StartMove(sarnevo::PtzLeft, 8), 1);
    EXPECT_EQ(Head().StopMove(), 1);
    EXPECT_EQ(Head().AddPreposition("Door"), 1);
    EXPECT_EQ(Head().DeletePreposition("Door"), 1);
  }
  sarnevo::IIPPTZApiEx& Head() { return *hosts_[0].driver->GetPTZDriverEx()->GetPTZApiEx(0); }

  /// Opens, and starts video, inputs and outputs.
  void StartAll() {
    Open();
    for (Host& host : hosts_) {
      EXPECT_TRUE(host.driver->GetVideoCapture()->StartCapture(0, &host, &host));
      auto* const io = host.driver->GetCaptureIO();
      EXPECT_TRUE(io->SetCallback(&host) && io->Start() && io->SetOutput(0, sarnevo::IOStateHigh));
    }
  }

  /// Waits for some frames and an input of each camera.
  void AwaitAll() {
    for (Host& host : hosts_) {
      const auto comes = [&, frames = host.frames + 3] { return host.changes > 0 && host.frames >= frames; };
      EXPECT_TRUE(Eventually(comes)) << host.address << "\n" << Told();
    }
  }

  void EndAll() {
    for (Host& host : hosts_) {
      host.driver->Close();
      library_.destroy(host.driver);
    }
  }

  /// All texts that the host got.
  std::string Told() const { return log_.Text(); }

 private:
  struct Host final : kolvex_test::Host {
    Host(const char* cameraGroup, HostLog& hostLog)
        : kolvex_test::Host(cameraGroup, 1, std::string("guest-") + cameraGroup), log(hostLog) {}

    const char* GetUserName() override { return kUser; }
    const char* GetPassword() override { return inTheClear.data(); }
    void OnDebugInfo(CDebugInfoIf* info) override {
      log.Add(info->GetText() != nullptr ? info->GetText() : "");
    }
    void OnInputChanged(sarnevo::u32 input, sarnevo::u32 state) override {
      kolvex_test::Host::OnInputChanged(input, state);
      if (group == "1") {
        held.wait(true);
      }
    }

    HostLog& log;
    sarnevo::ipcapture::IIPCaptureDriverEx3* driver = nullptr;
  };

  HostLog log_;
  const kolvex_test::Library library_;
  std::array<Host, 2> hosts_{Host("1", log_), Host("2", log_)};
};

// The lines of a file of /proc that hold one of the words.
std::string Lines(const char* file, const std::set<std::string>& words) {
  std::ifstream in(file);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    const bool wanted =
        std::ranges::any_of(words, [&](const auto& word) { return line.find(word) != line.npos; });
    text += wanted ? line + "\n" : "";
  }
  return text;
}

// All that is the host's, as text.
std::string HostState() {
  std::string text = Lines("/proc/self/status", {"Umask", "SigBlk", "SigIgn", "SigCgt"});
  text += std::string(std::setlocale(LC_ALL, nullptr)) + "\n" + fs::current_path().string() + "\n";
  std::string environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment += *entry + std::string("\n");
  }
  text += std::to_string(std::hash<std::string>{}(environment)) + "\n";  // what it holds is nobody's business
  text += Lines("/proc/self/limits", {"Max"});
  for (int stream = 0; stream <= 2; ++stream) {
    struct stat facts {};
    fstat(stream, &facts);
    text += std::to_string(facts.st_ino) + " " + std::to_string(fcntl(stream, F_GETFL)) + "\n";
  }
  return text;
}

std::set<std::string> NamesIn(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

// What a program that the host starts would inherit beyond what it knows.
std::string InheritedBeyond(const std::set<std::string>& known) {
  std::string text;
  for (const std::string& name : NamesIn("/proc/self/fd")) {
    const int descriptor = std::stoi(name);
    const int flags = fcntl(descriptor, F_GETFD);
    if (!known.contains(name) && flags >= 0 && (flags & FD_CLOEXEC) == 0) {
      text += name + "\n";
    }
  }
  return text;
}

// Descriptors that the host has open to its end, above which the library's own come to lie.
void OpenDescriptors(rlim_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_GE(limit.rlim_max, count + 500);
  for (; count > 0; --count) {
    open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
}

TEST(Guest, LeavesItsHostAsItWas) {
  const Cameras cameras;
  OpenDescriptors(5000);
  umask(027);
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  std::thread([] {}).join();  // the first one makes the system's own preparations
  const std::string before = HostState();
  const auto threads = NamesIn("/proc/self/task");
  const auto descriptors = NamesIn("/proc/self/fd");
  {
    const Witness witness;
    GuestRun run(KOLVEX_LIBRARY);
    EXPECT_TRUE(run.Query("127.0.1.1") && run.Query("127.0.2.1"));
    run.StartAll();
    run.AwaitAll();
    EXPECT_EQ(HostState(), before) << "while all runs";
    EXPECT_EQ(InheritedBeyond(descriptors), "");
    // A fork ends as any process does, with the destructors of static objects, and doesn't hang there.
    EXPECT_EXIT((alarm(60), std::exit(7)), testing::ExitedWithCode(7), "");
    EXPECT_EQ(std::system("exit 8"), 8 << 8);
    run.AwaitAll();
    run.EndAll();
    const std::string positions = Lines(KOLVEX_POSITIONS, {""});
    EXPECT_THAT(positions, testing::HasSubstr("<"));
    EXPECT_FALSE(IsPasswordIn(run.Told() + positions));
    EXPECT_EQ(witness.Report(), "");
  }
  EXPECT_EQ(HostState(), before);
  EXPECT_EQ(NamesIn("/proc/self/task"), threads);
  EXPECT_EQ(NamesIn("/proc/self/fd"), descriptors);
  EXPECT_EQ(Lines("/proc/self/maps", {"libkolvex"}), "");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep freed memory
  EXPECT_EQ(MemoryWithPassword(), "");
#endif
}

TEST(Guest, DoesNotMeetItsOwnCopy) {
  const Cameras cameras;
  fs::copy_file(KOLVEX_LIBRARY, cameras.Folder() / "copy.so");
  GuestRun one(KOLVEX_LIBRARY);
  GuestRun two(cameras.Folder() / "copy.so");
  EXPECT_TRUE(one.BeginsQueries() && two.BeginsQueries()) << "each counts its own";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const Witness witness;
  EXPECT_TRUE(one.Query("127.0.1.1") && two.Query("127.0.2.1"));
  EXPECT_FALSE(one.Query("nobody.invalid"));  // a name is looked up on a thread of its own
  one.StartAll();
  two.StartAll();
  one.AwaitAll();
  one.EndAll();
  two.AwaitAll();
  two.EndAll();
  EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(witness.Report(), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they refuse RTLD_DEEPBIND
// A host whose own functions go by the same names as those of the libraries below, and are seen by everybody.
TEST(Guest, CallsItsOwnLibrariesWhenItIsAskedTo) {
  Cameras cameras;
  void* const other = dlopen(OTHER_LIBRARIES, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(other, nullptr) << dlerror();
  auto* const calls = static_cast<int*>(dlsym(other, "otherCalls"));
  {
    GuestRun run(KOLVEX_LIBRARY, RTLD_DEEPBIND);
    EXPECT_TRUE(run.Query("127.0.1.1"));
    run.Open();
    cameras.Signal(SIGTERM);
    cameras.Finish();
    EXPECT_EQ(run.Head().AddPreposition("Gate"), sarnevo::PtzAddFailed);
    run.EndAll();
    EXPECT_THAT(run.Told(), testing::HasSubstr("cannot send HTTP message"));
    EXPECT_FALSE(IsPasswordIn(run.Told()));
  }
  EXPECT_EQ(*calls, 0);
  dlclose(other);
}
#endif

// The last test: the library stays in this process.
TEST(Guest, StaysMappedForAThreadThatItLeftInACallback) {
  const Cameras cameras;
  const auto threads = NamesIn("/proc/self/task");
  held = true;
  {
    GuestRun run(KOLVEX_LIBRARY);
    run.StartAll();
    run.AwaitAll();
    run.EndAll();
  }
  EXPECT_NE(NamesIn("/proc/self/task"), threads);
  held = false;
  held.notify_all();
  EXPECT_TRUE(Eventually([&] { return NamesIn("/proc/self/task") == threads; }));
}

}  // namespace
}  // namespace kolvex_test
