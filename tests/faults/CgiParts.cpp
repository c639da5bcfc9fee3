// The host's part in all that goes over HTTP alone: query, inputs and outputs, head and stored positions.
#include <memory>

#include "driver/CapabilityQuery.h"
#include "faults/Scene.h"
#include "io/CKolvexGroup1DigitalIO.h"
#include "io/CKolvexGroup2DigitalIO.h"
#include "io/FakeHost.h"
#include "ptz/CGroup1PTZComm.h"
#include "ptz/CPTZControl.h"
#include "ptz/CPTZHandler.h"
#include "support/RecordingCapabilities.h"
#include "support/TempFolder.h"

namespace kolvex_test {

namespace {

using namespace sarnevo;

constexpr u32 kHttpTimeout = static_cast<u32>(Quick(5000).count());

struct Observer : contract::ICapabilityObserver {
  void OnQueryDone() override { log.Add("done"); }
  void OnQueryFailed(u32 level, const char* text) override {
    const bool hasGroup = std::string(text).ends_with('!');
    log.Add(!hasGroup ? "no group" : level == QueryFailureLogin ? "login" : "failed");
  }
  HostLog log;
};

// What the observer heard, and for a query that was done what the host's object was told.
std::string Ask(Scene& scene) {
  Observer observer;
  RecordingCapabilities capabilities;
  CapabilityQuery query({.httpTimeout = kHttpTimeout,
                         .detectionLimit = static_cast<u32>(Quick(30'000).count()),
                         .stopWait = Quick(10'000),
                         .stopMoment = Quick(500)});
  query.Init(&observer, false);
  if (query.Start(scene.Address(), 80, "admin", "kolvex", &capabilities)) {
    observer.log.WaitFor("");
  }
  query.Uninit();
  const std::string heard = observer.log.Text();
  return heard == "done\n" ? heard + capabilities.Transcript() : heard;
}

struct Pins : SceneDriver {
  Pins(Scene& scene, u32 inputs, u32 outputs)
      : SceneDriver(scene, kQuicker, nullptr, nullptr, inputs, outputs) {
    constexpr u32 kPoll = static_cast<u32>(Quick(2000).count());
    if (driver->GetGroup() == 1) {
      io = std::make_unique<CKolvexGroup1DigitalIO>(driver, kPoll);
    } else {
      io = std::make_unique<CKolvexGroup2DigitalIO>(driver, kPoll);
    }
    io->SetCallback(&callback);
  }
  HostLog log;
  FakeCallback callback{log};
  std::unique_ptr<ICaptureIOApi> io;
};

struct Head {
  explicit Head(Scene& scene) : driver(scene, kQuicker, &sink, nullptr) {
    reader.Attach(new CXMLPrepositionReader("Kolvex", folder.Path()));
    scene.Must(reader->Open("faults.preset", false), "no preset file");
  }
  bool Open() { return control.Open(reader, new CGroup1PTZComm(&handler, {kHttpTimeout, 3 * kHttpTimeout})); }
  /// A position is left, so that nothing is where the head stands.
  void Leave() {
    control.StartMove(PtzRight, 8);
    control.StopMove();
  }
  bool HasMessage() const { return log.Count("OnDebugInfo 1") > 0; }

  HostLog log;
  FakeDebugSink sink{log};
  SceneDriver driver;
  TempFolder folder;
  CPTZHandler handler{driver.driver, 1, folder.Path()};
  TSmartPtr<CXMLPrepositionReader> reader;
  CPTZControl control{&handler, 0};
};

// One operation on stored positions under the fault, and the same again without.
template <typename Operation>
void OnPositions(Scene& scene, bool stored, Operation operation) {
  Head head(scene);
  scene.Must(head.Open(), "the control doesn't open");
  if (stored) {
    scene.Must(head.control.AddPreposition("gate") == PtzDone, "no position to begin with");
    head.Leave();
  }
  const Stopwatch watch = scene.Plant();
  const i32 result = operation(head.control);
  scene.outcome.after = watch.Read();
  if (result != PtzDone || head.HasMessage()) {
    scene.outcome.told = std::to_string(result) + (head.HasMessage() ? ", message" : "");
  }
  const Stopwatch healed = scene.Heal();
  head.Leave();
  const bool isDeleted = stored && head.control.GetPrepositionCount() == 0;
  scene.Must(isDeleted || operation(head.control) == PtzDone, "it fails without the fault too");
  scene.outcome.back = healed.Read();
}

}  // namespace

void Query(Scene& scene) {
  const Stopwatch watch = scene.Plant();
  const std::string heard = Ask(scene);
  scene.outcome.after = watch.Read();
  const Stopwatch healed = scene.Heal();
  const std::string sound = Ask(scene);
  scene.outcome.back = healed.Read();
  scene.Must(sound.starts_with("done\n"), "no query is done any more");
  const bool isDone = heard.starts_with("done\n");
  scene.outcome.told = heard == sound ? "" : isDone ? "done, less" : heard.substr(0, heard.find('\n'));
}

// All of the camera's inputs are low under the fault. The last one then goes high.
void PollInputs(Scene& scene) {
  const auto count = static_cast<u32>(scene.Status().inputs.size());
  std::string allLow;
  for (u32 i = 0; i < count; ++i) {
    allLow += "input " + std::to_string(i) + " is 1\n";
  }
  const std::string last = "input " + std::to_string(count - 1) + " is ";
  Pins pins(scene, count, 0);
  const Stopwatch watch = scene.Plant();
  pins.io->Start();
  Await(Quick(9000), [&] { return pins.log.Count("input") >= count; });
  scene.outcome.after = watch.Read();
  const std::string heard = pins.log.Text();
  scene.outcome.told = heard == allLow ? "" : heard.empty() ? "nothing" : "wrong state";
  const Stopwatch healed = scene.Heal();
  const auto isHeard = [&](const char* state) {
    return Eventually([&] { return pins.log.Text().ends_with(last + state); });
  };
  scene.Must(isHeard("1\n"), "an input stays wrong");
  scene.outcome.back = healed.Read();
  scene.Control("input" + std::to_string(count) + "=1");
  scene.Must(isHeard("2\n"), "a change isn't seen");
}

// The fault meets the request that switches on; the one that switches off tells that the first is over.
void SwitchOutput(Scene& scene) {
  Pins pins(scene, 0, 1);
  const char* const off = pins.driver->GetGroup() == 1 ? "relayid=1&value=0" : "Out1STA=0";
  pins.io->Start();
  scene.Must(Eventually([&] { return scene.HasRequest(off); }), "no output goes low at the start");
  const Stopwatch watch = scene.Plant();
  pins.io->SetOutput(0, IOStateHigh);
  pins.io->SetOutput(0, IOStateLow);
  const auto hasFailed = [&] { return pins.log.Count("failure") > 0; };
  Eventually([&] { return hasFailed() || scene.HasRequest(off, 2); });
  scene.outcome.after = watch.Read();
  scene.outcome.told = hasFailed() ? "OnIOFailure" : "";
  const Stopwatch healed = scene.Heal();
  pins.io->SetOutput(0, IOStateLow);
  pins.io->SetOutput(0, IOStateHigh);
  scene.Must(Eventually([&]() -> bool { return scene.Status().outputs[0]; }), "the output stays low");
  scene.outcome.back = healed.Read();
}

void OpenHead(Scene& scene) {
  Head head(scene);
  const Stopwatch watch = scene.Plant();
  scene.Must(head.Open(), "the control doesn't open");
  scene.outcome.after = watch.Read();
  const bool isAvailable = head.control.IsPTZAvailable() != 0;
  scene.outcome.told = head.HasMessage() ? "message" : isAvailable ? "" : "no PTZ";
  const Stopwatch healed = scene.Heal();
  scene.Must(head.control.IsPTZAvailable() != 0, "no protocol is found any more");
  scene.outcome.back = healed.Read();
}

void MoveHead(Scene& scene) {
  Head head(scene);
  scene.Must(head.Open(), "the control doesn't open");
  const Stopwatch watch = scene.Plant();
  scene.Must(head.control.StartMove(PtzLeft, 8) == PtzDone, "the movement isn't queued");
  head.control.StopMove();
  Eventually([&] { return head.HasMessage() || scene.HasRequest("write=FF0100000000"); });
  scene.outcome.after = watch.Read();
  scene.outcome.told = head.HasMessage() ? "message" : "";
  const Stopwatch healed = scene.Heal();
  head.control.StartMove(PtzUp, 8);
  scene.Must(Eventually([&] { return scene.Status().head.moving; }), "the head doesn't move any more");
  scene.outcome.back = healed.Read();
}

void StorePosition(Scene& scene) {
  OnPositions(scene, false, [](auto& control) { return control.AddPreposition("gate"); });
}

void RecallPosition(Scene& scene) {
  OnPositions(scene, true, [](auto& control) { return control.SelectPreposition(0, "gate"); });
}

void DeletePosition(Scene& scene) {
  OnPositions(scene, true, [](auto& control) { return control.DeletePreposition("gate"); });
}

}  // namespace kolvex_test
