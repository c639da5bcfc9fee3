// The library as a guest: loaded at run time into this process, which plays the recording server, run through
// all that it can do against simulated cameras in a process of their own, and unloaded. What belongs to the
// host must be as it was, and the functions that would change it must never have been called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "GuestRun.h"
#include "Witness.h"
#include "support/TempFolder.h"

namespace kolvex_test {
namespace {

namespace fs = std::filesystem;

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

// libcurl 7.88 makes its wake-up pair, a socket pair, without close-on-exec, and has no say in it for others. Such
// a pair leads nowhere but to its own process.
bool IsWakeUp(int descriptor) {
  sockaddr address{};
  socklen_t size = sizeof(address);
  return getsockname(descriptor, &address, &size) == 0 && address.sa_family == AF_UNIX;
}

// What a program that the host starts would inherit beyond those.
std::string InheritedBeyond(const std::set<std::string>& known) {
  std::string text;
  for (const std::string& name : NamesIn("/proc/self/fd")) {
    const int descriptor = std::stoi(name);
    const int flags = fcntl(descriptor, F_GETFD);
    if (!known.contains(name) && flags >= 0 && (flags & FD_CLOEXEC) == 0 && !IsWakeUp(descriptor)) {
      text += name + "\n";
    }
  }
  return text;
}

// The child's process ends as any does, with the destructors of static objects. -1: it hangs.
int ExitCodeOfFork() {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    std::exit(7);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Descriptors that the host has open to its end, above which the library's own come to lie.
void OpenDescriptors(rlim_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  for (count = std::min(count, limit.rlim_max - 500); count > 0; --count) {
    open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
}

TEST(Guest, LeavesItsHostAsItWas) {
  Cameras cameras;
  OpenDescriptors(5000);
  umask(027);
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  std::thread([] {}).join();  // the first one makes the system's own preparations
  const std::string before = HostState();
  const auto threads = NamesIn("/proc/self/task");
  const auto descriptors = NamesIn("/proc/self/fd");
  {
    const Witness witness;
    GuestRun run(KOLVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    EXPECT_TRUE(run.Query("127.0.1.1") && run.Query("127.0.2.1"));
    run.StartAll();
    run.AwaitAll();
    EXPECT_EQ(HostState(), before) << "while all runs";
    EXPECT_EQ(InheritedBeyond(descriptors), "");
    EXPECT_EQ(ExitCodeOfFork(), 7);
    EXPECT_EQ(std::system("exit 8"), 8 << 8);
    run.AwaitAll();
    run.EndAll();
    EXPECT_FALSE(Cameras::IsPasswordIn(run.Told()));
    EXPECT_EQ(witness.Report(), "");
    EXPECT_GE(witness.ThreadsMade(), 8U);
    EXPECT_GE(witness.BytesSent(), 1000U);
  }
  EXPECT_EQ(HostState(), before);
  EXPECT_EQ(NamesIn("/proc/self/task"), threads);
  EXPECT_EQ(NamesIn("/proc/self/fd"), descriptors);
  EXPECT_EQ(Lines("/proc/self/maps", {"libkolvex"}), "");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep freed memory
  EXPECT_EQ(Cameras::MemoryWithPassword(), "");
#endif
}

TEST(Guest, DoesNotMeetItsOwnCopy) {
  Cameras cameras;
  const TempFolder folder;
  fs::copy_file(KOLVEX_LIBRARY, folder / "copy.so");
  GuestRun one(KOLVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  GuestRun two(folder / "copy.so", RTLD_NOW | RTLD_LOCAL);
  EXPECT_TRUE(one.BeginsQueries() && two.BeginsQueries()) << "each counts its own";
  const Witness witness;
  EXPECT_TRUE(one.Query("127.0.1.1") && two.Query("127.0.2.1"));
  EXPECT_FALSE(one.Query("nobody.invalid"));  // a name is looked up on a thread of libcurl's
  one.StartAll();
  two.StartAll();
  one.AwaitAll();
  one.EndAll();
  two.AwaitAll();
  two.EndAll();
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
    GuestRun run(KOLVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    EXPECT_TRUE(run.Query("127.0.1.1"));
    run.Open();
    cameras.SwitchOff();
    run.FailToStore();
    run.EndAll();
    EXPECT_THAT(run.Told(), testing::HasSubstr("cannot send HTTP message"));
    EXPECT_FALSE(Cameras::IsPasswordIn(run.Told()));
  }
  EXPECT_EQ(*calls, 0);
  dlclose(other);
}
#endif

}  // namespace
}  // namespace kolvex_test
