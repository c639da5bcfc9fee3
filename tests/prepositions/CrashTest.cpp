#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <random>
#include <linux/capability.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "prepositions/ListFixture.h"
#include "support/Failures.h"

namespace sarnevo {
namespace {

// What a new start of the host finds in the file.
std::string StoredState(const std::string& folder) {
  CXMLPrepositionReader reader("Kolvex", folder);
  std::string state = reader.Open("p.preset", true) ? "" : "(not whole)";
  PrepositionRecord record;
  for (u32 index = 0; reader.Read(0, index, record); ++index) {
    state += ToUtf8(record.name) + "=" + std::to_string(record.slot) + ",";
  }
  return state;
}

// An add, a rename or a delete at random, a few positions at a time: of equal lists the same.
void Operate(List& list, std::mt19937& random) {
  const std::wstring name = L"p" + std::to_wstring(random());
  const std::wstring longName = name + std::wstring(random() % 300, L'\u20ac');
  std::wstring known;
  if (!list.GetPrepositionName(static_cast<u32>(random() % 12), known)) {
    list.ClearCurrentPreposition();
    list.AddPreposition(longName);
  } else if (random() % 2 == 0) {
    list.DeletePreposition(known);
  } else {
    list.SelectPreposition(known, 0);
    list.AddPreposition(longName);
  }
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

// The end of a child that may not be traced.
constexpr int kNotAllowed = 77;

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

// An add, and what becomes of a torn file: its content is always there under one name or the other.
TEST(PresetCrash, BetweenAnyTwoSystemCallsLeavesTheFileBeforeOrAfterTheOperation) {
  const std::string torn = "<Kolvex><torn";
  for (const bool isTorn : {false, true}) {
    SCOPED_TRACE(isTorn ? "torn" : "add");
    int seenBefore = 0, seenAfter = 0;
    std::string calls;
    for (bool finished = false; !finished;) {
      const TempFolder folder;
      List(folder.Path()).AddPreposition(L"a");
      const pid_t child = Fork([&] {
        List list(folder.Path());
        if (isTorn) {
          folder.Write("p.preset", torn);
        }
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
          _exit(kNotAllowed);
        }
        raise(SIGSTOP);
        isTorn ? static_cast<void>(OpenReader(folder.Path())) : static_cast<void>(list.AddPreposition(L"b"));
      });
      const int status = WaitFor(child);
      if (WIFEXITED(status) && WEXITSTATUS(status) == kNotAllowed) {
        GTEST_SKIP() << "this process may not trace another";
      }
      ASSERT_TRUE(WIFSTOPPED(status));
      finished = KillAtStop(child, seenBefore + seenAfter + 1, calls);
      const std::string state = StoredState(folder.Path()), file = folder.Read("p.preset");
      const bool isBefore = isTorn ? file == torn : state == "a=0,";
      const bool isAfter = isTorn ? state.empty() && folder.Read("p.preset.bad") == torn : state == "a=0,b=1,";
      ASSERT_TRUE(isBefore || isAfter) << file;
      ++(isBefore ? seenBefore : seenAfter);
    }
    EXPECT_GT(seenBefore, 10);
    EXPECT_GT(seenAfter, 3);
    // The new content is on the disk before it gets the name, so that a loss of power does no harm either.
    EXPECT_EQ(calls, isTorn ? "write flush keep rename flush " : "write flush rename flush ");
  }
}

// A disk that fills up in the middle of a write, a read-only folder, a disk that loses what it was given; and on a twin
// with a healthy one. The file is the one before or after each operation.
TEST(PresetCrash, ADiskThatFailsLeavesTheFileBeforeOrAfterTheOperation) {
  using kolvex_test::Resource;
  constexpr Resource kFailing[] = {Resource::Open, Resource::Write, Resource::Flush, Resource::Rename};
  const TempFolder folder, healthy;
  List list(folder.Path()), twin(healthy.Path());
  std::mt19937 random(7), chance(11);
  int failures = 0;
  for (int round = 0; round < 600; ++round) {
    const std::string before = StoredState(folder.Path());
    std::mt19937 same = random;
    Operate(twin, same);
    kolvex_test::Fail(kFailing[chance() % 4], static_cast<long>(1 + chance() % 3), chance() % 2 == 0);
    {
      const kolvex_test::Side library(true);
      Operate(list, random);
    }
    const std::string found = StoredState(folder.Path()), wanted = StoredState(healthy.Path());
    ASSERT_TRUE(found == before || found == wanted) << round << "\nfound  " << found << "\nbefore " << before;
    failures += found != wanted;
    kolvex_test::Heal();
    ASSERT_EQ(folder.List().size(), folder.List().count("p.preset")) << "nothing half-done stays";
    if (found != wanted) {
      // When the disk is well again the next save carries all that gathered in memory.
      list.ClearCurrentPreposition();
      ASSERT_TRUE(list.AddPreposition(L"x") == 1 && list.DeletePreposition(L"x"));
      ASSERT_EQ(StoredState(folder.Path()), wanted);
    }
  }
  EXPECT_GT(failures, 50);
  EXPECT_LT(failures, 550);
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
        EXPECT_EQ(List(folder.Path()).AddPreposition(L"b"), -18);
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
  // All read the file before any of them saves: none knows a name of another's.
  List lists[] = {List(folder.Path()), List(folder.Path()), List(folder.Path())};
  const auto write = [&](u32 number) {
    std::wstring name;
    for (u32 i = 0; i < 150; ++i) {
      lists[number].DeletePreposition(name);
      name = std::to_wstring(number) + std::wstring(i, L'x');
      EXPECT_EQ(lists[number].AddPreposition(name), 1);
    }
  };
  const auto writeTwo = [&] {
    const std::jthread second(write, 1U);
    write(0);
  };
  for (const pid_t child : {Fork(writeTwo), Fork([&] { write(2); })}) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) != child) {
      ASSERT_NE(StoredState(folder.Path()), "(not whole)");
    }
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(StoredState(folder.Path()).substr(1), std::string(149, 'x') + "=0,");
}

}  // namespace
}  // namespace sarnevo
