#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <random>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

// What a file must hold, kept without the code under test, or holds, as a new start of the host finds it.
struct Model {
  std::vector<std::pair<std::wstring, u32>> entries;
  bool whole = true;

  static Model Of(const std::string& folder) {
    Model model;
    CXMLPrepositionReader reader("Kolvex", folder);
    model.whole = reader.Open("p.preset", true);
    PrepositionRecord record;
    for (u32 index = 0; reader.Read(0, index, record); ++index) {
      model.entries.emplace_back(record.name, record.slot);
    }
    return model;
  }
  u32 FreeSlot() const {
    u32 slot = 0;
    while (std::any_of(entries.begin(), entries.end(), [slot](const auto& e) { return e.second == slot; })) {
      ++slot;
    }
    return slot;
  }
  std::string State() const {
    std::string state = whole ? "" : "(not whole)";
    for (const auto& [name, slot] : entries) {
      state += ToUtf8(name) + "=" + std::to_string(slot) + ",";
    }
    return state;
  }
};

std::string StoredState(const std::string& folder) { return Model::Of(folder).State(); }

// What is done next to a list: an add, a rename or a delete at random, a few positions at a time, which @p model
// has seen already. No name twice: the list would find the lowest slot of a doubled name, the model another.
std::function<void(List&)> NextOperation(Model& model, std::mt19937& random) {
  const std::wstring name = L"p" + std::to_wstring(random()) + L"-" + std::to_wstring(random()) +
                            std::wstring(random() % 300, L'\u20ac');
  const auto choice = static_cast<u32>(random() % 3);
  const std::size_t count = model.entries.size();
  if (count == 12 || (choice == 0 && count > 0)) {
    const auto victim = model.entries.begin() + static_cast<std::ptrdiff_t>(random() % count);
    const std::wstring old = victim->first;
    model.entries.erase(victim);
    return [old](List& list) { list.DeletePreposition(old); };
  }
  if (choice == 1 && count > 0) {
    const std::wstring old = std::exchange(model.entries[random() % count].first, name);
    return [old, name](List& list) { list.SelectPreposition(old, 0), list.AddPreposition(name); };
  }
  model.entries.emplace_back(name, model.FreeSlot());
  return [name](List& list) { list.ClearCurrentPreposition(), list.AddPreposition(name); };
}

// Runs @p body in a process of its own that ends with it.
pid_t Fork(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return child;
}

int WaitFor(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kKills = 100;  // each costs several times as much
#else
constexpr int kKills = 500;
#endif

// Lets a stopped child run through @p stops stops, one before and one after each of its system calls, and
// kills it there. Gives the calls that touch the disk in @p calls. True when the child came to its end.
bool KillAtStop(pid_t child, int stops, std::string& calls) {
  calls.clear();
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  for (int stop = 0; stop < stops; ++stop) {
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    if (WIFEXITED(WaitFor(child))) {
      return true;
    }
    struct __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      const auto number = info.entry.nr;
      // Sanitizers write a few bytes into pipes of their own.
      calls += number == SYS_write      ? info.entry.args[2] > 40 ? "write " : ""
               : number == SYS_fsync    ? "flush "
               : number == SYS_linkat   ? "keep "
               : number == SYS_renameat ? "rename "
                                        : "";
    }
  }
  kill(child, SIGKILL);
  WaitFor(child);
  return false;
}

TEST(PresetCrash, AtAnyMomentLeavesTheFileBeforeOrAfterTheOperation) {
  const TempFolder folder;
  OpenReader(folder.Path());
  void* const shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& operation = *new (shared) std::atomic<u32>;  // the one in progress, from 1
  std::mt19937 random(20240229);
  u32 operations = 0;
  for (int round = 0; round < kKills; ++round) {
    Model model = Model::Of(folder.Path());
    operation = 0;
    std::mt19937 own(static_cast<u32>(random()));
    const pid_t child = Fork([&] {
      FakeCamera camera;
      List list(&camera, OpenReader(folder.Path()));
      for (;;) {
        const auto next = NextOperation(model, own);
        ++operation;
        next(list);
      }
    });
    // In its start-up the kill would prove nothing.
    const u32 least = 1 + static_cast<u32>(random() % 5);
    while (operation < least) {
      usleep(50);
    }
    usleep(static_cast<useconds_t>(random() % 3'000));
    kill(child, SIGKILL);
    ASSERT_TRUE(WIFSIGNALED(WaitFor(child)));
    std::string before;
    for (u32 i = 0; i < operation; ++i) {  // what the child had in mind, told again
      before = model.State();
      NextOperation(model, own);
    }
    const std::string found = StoredState(folder.Path());
    ASSERT_TRUE(found == before || found == model.State())
        << "round " << round << "\nfound  " << found << "\nbefore " << before << "\nafter  " << model.State();
    operations += operation;
  }
  EXPECT_GT(operations, 2U * kKills);
  munmap(shared, 4096);
}

TEST(PresetCrash, BetweenAnyTwoSystemCallsLeavesTheFileBeforeOrAfterTheOperation) {
  const std::string torn = "<Kolvex><torn";
  const auto holds = [](std::string state) {
    return [state](const TempFolder& folder) { return StoredState(folder.Path()) == state; };
  };
  const auto onList = [](std::function<void(List&)> operation) {
    return [operation](const TempFolder& folder) {
      FakeCamera camera;
      List list(&camera, OpenReader(folder.Path()));
      raise(SIGSTOP);
      operation(list);
    };
  };
  const struct {
    const char* name;
    std::function<void(const TempFolder&)> run;  // stops itself where the tracing begins
    std::function<bool(const TempFolder&)> isBefore, isAfter;
    // The new content is on the disk before it gets the name, so that a loss of power does no harm either.
    const char* calls;
  } kOperations[] = {
      {"add", onList([](List& list) { list.AddPreposition(L"c"); }), holds("a=0,b=1,"), holds("a=0,b=1,c=2,"),
       "write flush rename flush "},
      {"a torn file is replaced, and what it held is always there under one name or the other",
       [&](const TempFolder& folder) {
         folder.Write("p.preset", torn);
         raise(SIGSTOP);
         OpenReader(folder.Path());
       },
       [&](const TempFolder& folder) { return folder.Read("p.preset") == torn; },
       [&](const TempFolder& folder) {
         return folder.Read("p.preset.bad") == torn && StoredState(folder.Path()).empty();
       },
       "write flush keep rename flush "},
  };
  for (const auto& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    int seenBefore = 0, seenAfter = 0;
    std::string calls;
    for (bool finished = false; !finished;) {
      const TempFolder folder;
      {
        auto reader = OpenReader(folder.Path());
        ASSERT_TRUE(reader->Write(0, 0, {L"a", 0}) && reader->Write(0, 1, {L"b", 1}));
      }
      const pid_t child = Fork([&] {
        ASSERT_EQ(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr), 0);
        operation.run(folder);
      });
      ASSERT_TRUE(WIFSTOPPED(WaitFor(child))) << "the system allows no tracing of child processes";
      finished = KillAtStop(child, seenBefore + seenAfter + 1, calls);
      const bool before = operation.isBefore(folder);
      ASSERT_TRUE(before || operation.isAfter(folder)) << folder.Read("p.preset");
      ++(before ? seenBefore : seenAfter);
    }
    EXPECT_GT(seenBefore, 10);
    EXPECT_GT(seenAfter, 3);
    EXPECT_EQ(calls, operation.calls);
  }
}

// In a mount namespace of its own, so that nothing of it is seen outside.
TEST(PresetCrash, FullDiskAndReadOnlyFolderLeaveTheFileBeforeOrAfterTheOperation) {
  const TempFolder folder;
  const pid_t child = Fork([&] {
    const char* const path = folder.Path().c_str();
    ASSERT_EQ(unshare(CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER)), 0) << "no namespace to be had";
    ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount("none", path, "tmpfs", 0, "size=128k"), 0);
    FakeCamera camera;
    List list(&camera, OpenReader(path));
    Model model;
    std::mt19937 random(7);
    int failures = 0;
    for (int round = 0; round < 600; ++round) {
      // From a full disk up to room for the whole file, and in between once a folder that is read-only.
      const bool readOnly = round % 7 == 0;
      folder.Write("filler", std::string(128 * 1024 - (random() % 14) * 4096, 'x'));
      ASSERT_EQ(
          mount(nullptr, path, nullptr, 0UL + MS_REMOUNT + (readOnly ? 0UL + MS_RDONLY : 0UL), "size=128k"), 0);
      const std::string before = StoredState(path);
      NextOperation(model, random)(list);
      const std::string found = StoredState(path);
      ASSERT_TRUE(found == before || found == model.State())
          << round << "\nfound  " << found << "\nbefore " << before;
      failures += found != model.State();
      ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT, "size=128k"), 0);
      EXPECT_EQ(std::filesystem::remove(folder / "filler"), true);
      EXPECT_EQ(folder.List(), std::set<std::string>{"p.preset"}) << "nothing half-done stays";
      if (found != model.State()) {
        // With room again the next save carries all that gathered in memory.
        list.ClearCurrentPreposition();
        ASSERT_TRUE(list.AddPreposition(L"x") == 1 && list.DeletePreposition(L"x"));
        ASSERT_EQ(StoredState(path), model.State());
      }
    }
    EXPECT_GT(failures, 50);
    EXPECT_LT(failures, 550);
  });
  EXPECT_EQ(WaitFor(child), 0);
}

// As a host without a right, whichever user runs the test: the capabilities that go past rights are given up.
TEST(PresetCrash, AFileWithoutTheRightToReadOrWriteItIsLeftAsItIs) {
  for (const mode_t mode : {0000, 0200, 0444}) {
    for (const char* const content : {"<Kolvex><torn", "<Kolvex/>"}) {
      const TempFolder folder;
      folder.Write("p.preset", content);
      ASSERT_EQ(chmod((folder / "p.preset").c_str(), mode), 0);
      const pid_t child = Fork([&] {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
        FakeCamera camera;
        EXPECT_EQ(List(&camera, OpenReader(folder.Path())).AddPreposition(L"b"), -18);
      });
      EXPECT_EQ(WaitFor(child), 0) << content << mode;
      ASSERT_EQ(chmod((folder / "p.preset").c_str(), 0644), 0);
      EXPECT_EQ(folder.Read("p.preset"), content) << mode;
      EXPECT_EQ(folder.List(), std::set<std::string>{"p.preset"});
    }
  }
}

// Two drivers in one process and a third in another, each with a document of its own: the last one to save wins,
// with all of its names and none of the others'.
TEST(PresetCrash, WritersOfOneFileNeverTearItAndTheLastToSaveWins) {
  const TempFolder folder;
  FakeCamera cameras[3];
  // All read the file before any of them saves: none knows a name of another's.
  List lists[] = {List(&cameras[0], OpenReader(folder.Path())), List(&cameras[1], OpenReader(folder.Path())),
                  List(&cameras[2], OpenReader(folder.Path()))};
  const auto write = [&](u32 number) {
    std::wstring name;
    for (u32 i = 0; i < 150; ++i) {
      lists[number].DeletePreposition(name);
      name = std::to_wstring(number) + std::wstring(i, L'x');
      EXPECT_EQ(lists[number].AddPreposition(name), 1);
    }
  };
  const pid_t children[] = {Fork([&] {
                              std::thread second(write, 1U);
                              write(0);
                              second.join();
                            }),
                            Fork([&] { write(2); })};
  for (const pid_t child : children) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) != child) {
      ASSERT_NE(StoredState(folder.Path()), "(not whole)");
    }
    EXPECT_EQ(status, 0);
  }
  const std::string found = StoredState(folder.Path());
  EXPECT_EQ(found.substr(1), std::string(149, 'x') + "=0,");
}

}  // namespace
}  // namespace sarnevo
