#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
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

// Where a process that will be killed writes down what it is doing: operation k leads from state k - 1 to
// state k. A state is complete before the operation is announced, and stays until two further ones.
struct Diary {
  std::atomic<u32> operation{0};
  char states[3][16 * 1024];

  static Diary* Share() {
    void* memory = mmap(nullptr, sizeof(Diary), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Diary;
  }
  void Begin(const std::string& state) { std::strcpy(states[0], state.c_str()); }
  void Announce(const std::string& next) {
    const u32 number = operation.load() + 1;
    std::strcpy(states[number % 3], next.c_str());
    operation.store(number);
  }
  std::string Before() const { return states[(operation.load() + 2) % 3]; }
  std::string After() const { return states[operation.load() % 3]; }
};

// Adds, renames and deletes at random, a few positions at a time. No name twice: the list would find the
// lowest slot of a doubled name, the model another. False when the list told of a failure.
bool Work(List& list, Model& model, std::mt19937& random, Diary& diary) {
  const std::wstring name = L"p" + std::to_wstring(random()) + L"-" + std::to_wstring(random()) +
                            std::wstring(random() % 300, L'\u20ac');
  const u32 choice = static_cast<u32>(random() % 3);
  if (choice == 0 && !model.entries.empty()) {
    const auto victim = model.entries.begin() + static_cast<std::ptrdiff_t>(random() % model.entries.size());
    const std::wstring old = victim->first;
    model.entries.erase(victim);
    diary.Announce(model.State());
    return list.DeletePreposition(old);
  }
  if (choice == 1 && !model.entries.empty()) {
    auto& entry = model.entries[random() % model.entries.size()];
    list.SelectPreposition(entry.first, 0);
    entry.first = name;
    diary.Announce(model.State());
    return list.AddPreposition(name) == 1;
  }
  if (model.entries.size() < 12) {
    list.ClearCurrentPreposition();
    model.entries.emplace_back(name, model.FreeSlot());
    diary.Announce(model.State());
    return list.AddPreposition(name) == 1;
  }
  return true;
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
      switch (info.entry.nr) {
        case SYS_write:
          // Sanitizers write a few bytes into pipes of their own.
          calls += info.entry.args[2] > 40 ? "write " : "";
          break;
        case SYS_fsync:
          calls += "flush ";
          break;
        case SYS_linkat:
          calls += "keep ";
          break;
        case SYS_renameat:
          calls += "rename ";
          break;
      }
    }
  }
  kill(child, SIGKILL);
  WaitFor(child);
  return false;
}

TEST(PresetCrash, AtAnyMomentLeavesTheFileBeforeOrAfterTheOperation) {
  const TempFolder folder;
  OpenReader(folder.Path());
  Diary* const diary = Diary::Share();
  ASSERT_NE(diary, nullptr);
  std::mt19937 random(20240229);
  u32 operations = 0;
  for (int round = 0; round < kKills; ++round) {
    const std::string start = StoredState(folder.Path());
    new (diary) Diary;
    diary->Begin(start);
    const auto seed = static_cast<u32>(random());
    const pid_t child = Fork([&] {
      FakeCamera camera;
      List list(&camera, OpenReader(folder.Path()));
      Model model = Model::Of(folder.Path());
      for (std::mt19937 own(seed);;) {
        Work(list, model, own, *diary);
      }
    });
    // In its start-up the kill would prove nothing.
    const u32 operation = 1 + static_cast<u32>(random() % 5);
    while (diary->operation.load() < operation) {
      usleep(50);
    }
    usleep(static_cast<useconds_t>(random() % 3'000));
    kill(child, SIGKILL);
    ASSERT_TRUE(WIFSIGNALED(WaitFor(child)));
    const std::string found = StoredState(folder.Path());
    ASSERT_TRUE(found == diary->After() || (diary->operation.load() > 0 && found == diary->Before()))
        << "round " << round << "\nfound  " << found << "\nbefore " << diary->Before() << "\nafter  "
        << diary->After();
    operations += diary->operation.load();
  }
  EXPECT_GT(operations, 2U * kKills);
  munmap(diary, sizeof(Diary));
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
      {"rename", onList([](List& list) { list.SelectPreposition(L"b", 0), list.AddPreposition(L"c"); }),
       holds("a=0,b=1,"), holds("a=0,c=1,"), "write flush rename flush "},
      {"delete", onList([](List& list) { list.DeletePreposition(L"a"); }), holds("a=0,b=1,"), holds("b=1,"),
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
    Diary diary{};
    std::mt19937 random(7);
    int failures = 0;
    for (int round = 0; round < 600; ++round) {
      // From a full disk up to room for the whole file, and in between once a folder that is read-only.
      const bool readOnly = round % 7 == 0;
      folder.Write("filler", std::string(128 * 1024 - (random() % 14) * 4096, 'x'));
      ASSERT_EQ(
          mount(nullptr, path, nullptr, 0UL + MS_REMOUNT + (readOnly ? 0UL + MS_RDONLY : 0UL), "size=128k"), 0);
      const std::string before = StoredState(path);
      const std::size_t count = model.entries.size();
      const bool told = Work(list, model, random, diary);
      const std::string found = StoredState(path);
      ASSERT_TRUE(found == before || found == model.State())
          << round << "\nfound  " << found << "\nbefore " << before;
      failures += found != model.State();
      if (model.entries.size() >= count) {  // a delete counts as done all the same
        EXPECT_EQ(told, found == model.State()) << "round " << round;
      }
      ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT, "size=128k"), 0);
      EXPECT_EQ(std::filesystem::remove(folder / "filler"), true);
      EXPECT_EQ(folder.List(), std::set<std::string>{"p.preset"}) << "nothing half-done stays";
      if (found != model.State()) {
        // With room again the next save carries all that gathered in memory.
        list.ClearCurrentPreposition();
        model.entries.emplace_back(L"x", model.FreeSlot());
        ASSERT_EQ(list.AddPreposition(L"x"), 1);
        ASSERT_EQ(StoredState(path), model.State());
        model.entries.pop_back();
        ASSERT_TRUE(list.DeletePreposition(L"x"));
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
  const TempFolder folder;
  OpenReader(folder.Path())->Write(0, 0, {L"a", 0});
  const std::string whole = folder.Read("p.preset");
  for (const std::string& content : {whole, std::string("<Kolvex><torn")}) {
    for (const mode_t mode : {0000, 0200, 0444}) {
      SCOPED_TRACE(content + (mode == 0444 ? " read-only" : " unreadable"));
      folder.Write("p.preset", content);
      ASSERT_EQ(chmod((folder / "p.preset").c_str(), mode), 0);
      EXPECT_EQ(WaitFor(Fork([&] {
                  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
                  __user_cap_data_struct none[2] = {};
                  ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
                  FakeCamera camera;
                  List list(&camera, OpenReader(folder.Path()));
                  EXPECT_EQ(list.Names(), mode == 0444 && content == whole ? "a," : "");
                  EXPECT_EQ(list.AddPreposition(L"b"), -18);
                })),
                0);
      ASSERT_EQ(chmod((folder / "p.preset").c_str(), 0644), 0);
      EXPECT_EQ(folder.Read("p.preset"), content);
      EXPECT_EQ(folder.List(), std::set<std::string>{"p.preset"});
    }
  }
}

// Each has a document of its own: the last one to save wins, with all of its names and none of the other's.
TEST(PresetCrash, TwoWritersOfOneFileNeverTearItAndTheLastToSaveWins) {
  for (const bool processes : {false, true}) {
    SCOPED_TRACE(processes ? "two processes" : "two drivers in one process");
    const TempFolder folder;
    OpenReader(folder.Path());
    Diary* const diaries[] = {Diary::Share(), Diary::Share()};
    std::atomic<int> running{2};
    const auto write = [&](u32 number) {
      FakeCamera camera;
      List list(&camera, OpenReader(folder.Path()));
      for (u32 i = 0; i < 150; ++i) {
        list.ClearCurrentPreposition();
        const std::wstring name = std::to_wstring(number) + L"-" + std::to_wstring(i) + std::wstring(i, L'x');
        EXPECT_EQ(list.AddPreposition(name), 1);
        if (i != 149) {
          EXPECT_TRUE(list.DeletePreposition(name));
        }
      }
      diaries[number]->Announce(list.Names());
      --running;
    };
    int torn = 0;
    const auto look = [&] { torn += StoredState(folder.Path()) == "(not whole)"; };
    if (processes) {
      pid_t children[] = {Fork([&] { write(0); }), Fork([&] { write(1); })};
      for (const pid_t child : children) {
        int status = 0;
        while (waitpid(child, &status, WNOHANG) != child) {
          look();
        }
        EXPECT_EQ(status, 0);
      }
    } else {
      std::thread first(write, 0U), second(write, 1U);
      while (running.load() != 0) {
        look();
      }
      first.join();
      second.join();
    }
    EXPECT_EQ(torn, 0);
    FakeCamera camera;
    const std::string found = List(&camera, OpenReader(folder.Path())).Names();
    std::string last[] = {diaries[0]->After(), diaries[1]->After()};
    for (auto& state : last) {
      std::erase(state, '*');
    }
    EXPECT_TRUE(found == last[0] || found == last[1]) << found;
  }
}

}  // namespace
}  // namespace sarnevo
