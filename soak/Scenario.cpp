#include "Scenario.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace kolvex_test {

namespace {

using std::chrono::milliseconds;

struct Run {
  Run(const Library& theLibrary, Host& theHost) : library(theLibrary), host(theHost) {}

  const Library& library;
  Host& host;
  IIPCaptureDriverEx3* driver = nullptr;
  bool good = true;

  void Complain(const std::string& text) {
    std::fprintf(stderr, "  group %s: %s\n", host.group.c_str(), text.c_str());
    good = false;
  }

  // An order that may be refused when something is lacking, and then succeeds.
  template <typename Order>
  void Do(const char* what, Order order) {
    for (int attempt = 0; attempt < 2; ++attempt) {
      const bool done = [&] {
        const Side library(true);
        return order();
      }();
      if (done) {
        return;
      }
      if (Strikes() == 0) {
        break;
      }
      Heal();
    }
    Complain(std::string(what) + " is refused although nothing lacks");
  }

  // What comes by itself when nothing is lacking any more.
  template <typename Holds>
  void Await(const char* what, Holds holds) {
    for (int round = 0; round < 100; ++round) {
      if (kolvex_test::Await(milliseconds(300), holds)) {
        return;
      }
      if (Strikes() != 0) {
        Heal();
      }
    }
    Complain(std::string(what) + " never comes");
  }

  // An operation on the stored positions. Whatever fails, list and file are each as before or as wanted; what
  // is reported as done is so in both.
  template <typename Order>
  void Change(IIPPTZApi& head, const char* what, const std::string& wanted, Order order) {
    const std::string fileBefore = NamesInFile(host), listBefore = NamesInList(head);
    Do(what, [&] {
      const bool done = order() == PtzDone;
      const Side ours(false);
      const std::string file = NamesInFile(host), list = NamesInList(head);
      const bool isNew = list == wanted && file == wanted;
      if ((list != wanted && list != listBefore) || (file != wanted && file != fileBefore) ||
          (done && !isNew && Strikes() == 0)) {
        Complain(std::string(what) + ": list " + list + " file " + file + " before " + listBefore + " " +
                 fileBefore);
      }
      // A camera that doesn't answer leaves a position in the list, and a position that is gone from the list can't
      // be deleted again for the sake of the file, which the next change writes.
      return isNew || (!done && Strikes() != 0 && list == wanted && wanted.size() < listBefore.size());
    });
  }

  // A request that the camera doesn't answer leaves what it is about out of a query that is done.
  void AskCamera() {
    static u64 whole[3];  // what a query says when nothing fails, for each group
    u64& expected = whole[host.group == "1" ? 1 : 2];
    Do("the query", [&] {
      const bool done = Query(library, host);
      if (expected == 0 && Strikes() == 0) {
        expected = host.told;
      }
      return done && (host.told == expected || expected == 0);
    });
  }

  void DeleteDriver() {
    const Side inside(true);
    library.destroy(driver);
    driver = nullptr;
  }

  void OpenDriver() {
    Do("Open", [&] {
      driver = library.create();
      const bool opened = driver != nullptr && driver->Open(&host, &host, &host);
      if (!opened) {
        DeleteDriver();
      }
      return opened;
    });
  }

  // A head whose file of positions couldn't be opened is given out all the same and refuses to store; a new
  // driver opens the file again.
  IIPPTZApi& OpenHead() {
    const long before = Strikes();
    IIPPTZApi* head = nullptr;
    const auto get = [&] { return (head = driver->GetPTZDriver()->GetPTZApi(0)) != nullptr; };
    Do("GetPTZApi", get);
    if (Strikes() != before) {
      Heal();
      DeleteDriver();
      OpenDriver();
      Do("GetPTZApi", get);
    }
    return *head;
  }

  // What was stored is there again, and nothing that is lacking now takes it out of the file.
  void Restart() {
    const std::string stored = NamesInFile(host);
    OpenDriver();
    if (NamesInList(OpenHead()) != stored || NamesInFile(host) != stored) {
      Complain("the positions are not what they were");
    }
    DeleteDriver();
  }

  void Video(IIPVideoCapture& video) {
    Do("StartCapture", [&] { return video.StartCapture(0, &host, &host); });
    Await("a frame", [&] { return host.frames > 0; });
    Do("ChangeFormat", [&] { return video.ChangeFormat(0, &host, 40); });
    Await("a frame of the other format", [&, before = host.frames + 1] { return host.frames > before; });
    Do("StopCapture", [&] { return video.StopCapture(0); });
  }

  // A driver that was opened while something was lacking may lack it for good; the host opens another.
  void Pins() {
    const auto pins = [&] { return driver->GetCaptureIO(); };
    Do("Start", [&] {
      if (pins()->SetCallback(&host) && pins()->Start()) {
        return true;
      }
      Heal();
      DeleteDriver();
      OpenDriver();
      return false;
    });
    Do("SetOutput", [&] { return pins()->SetOutput(0, IOStateHigh); });
    Await("the inputs", [&] { return host.changes >= 2; });
    if (host.wrongInputs != 0) {
      Complain("an input is reported as high");
    }
  }

  void Head(IIPPTZApi& head) {
    const auto leave = [&] { Do("StartMove", [&] { return head.StartMove(PtzLeft, 8) == PtzDone; }); };
    Change(head, "adding Gate", "Gate,", [&] { return head.AddPreposition("Gate"); });
    leave();
    Change(head, "adding Yard", "Gate,Yard,", [&] { return head.AddPreposition("Yard"); });
    leave();
    Do("SelectPreposition", [&] { return head.SelectPreposition(0, "Gate") == PtzDone; });
    Change(head, "renaming Gate", "Door,Yard,", [&] { return head.AddPreposition("Door"); });
    Change(head, "deleting Door", "Yard,", [&] { return head.DeletePreposition("Door"); });
    Change(head, "adding Loft", "Yard,Loft,", [&] { return head.AddPreposition("Loft"); });
    Do("StopMove", [&] { return head.StopMove() == PtzDone; });
  }
};

}  // namespace

std::string PresetFile(const Host& host) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() /
         ("Kolvex_" + host.hardwareAddress + ".preset");
}

std::string NamesInFile(const Host& host) {
  std::ifstream file(PresetFile(host), std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::string_view whole = std::string_view(text).substr(0, text.find_last_not_of('\n') + 1);
  if (!whole.ends_with("</Kolvex>") && !whole.ends_with("<Kolvex/>")) {
    return "torn";
  }
  std::string names;
  const std::string begin = "<Name value=\"";
  for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
    at += begin.size();
    names += text.substr(at, text.find('"', at) - at) + ',';
  }
  return names;
}

std::string NamesInList(IIPPTZApi& head) {
  std::string names;
  char name[64];
  for (u32 i = 0; i < head.GetPrepositionCount(); ++i) {
    names += head.GetPrepositionName(i, name, sizeof(name)) == PtzDone ? name : "?";
    names += ',';
  }
  return names;
}

bool Query(const Library& library, Host& host) {
  host.queryEnd = 0;
  host.told = 0;
  const Side inside(true);
  library.init(&host, 0);
  if (library.start(host.address.c_str(), 80, host.GetUserName(), host.GetPassword(), &host) != 0) {
    Await(milliseconds(30'000), [&] { return host.queryEnd != 0; });
  }
  library.uninit();
  return host.queryEnd == 1;
}

bool RunScenario(const Library& library, Host& host) {
  Run run(library, host);
  run.AskCamera();
  run.OpenDriver();
  if (!run.good) {
    return false;
  }
  run.Video(*run.driver->GetVideoCapture());
  run.Pins();
  if (host.group == "1") {
    run.Head(run.OpenHead());
  }
  run.DeleteDriver();
  if (host.group == "1") {
    run.Restart();
  }
  if (host.lent != 0) {
    run.Complain("a frame is kept");
  }
  std::filesystem::remove(PresetFile(host));
  return run.good;
}

}  // namespace kolvex_test
