// What the host does in each scene.
#include <atomic>
#include <memory>

#include "driver/CapabilityQuery.h"
#include "faults/Scene.h"
#include "io/CGroupDigitalIO.h"
#include "ptz/CGroup1PTZComm.h"
#include "ptz/CPTZControl.h"
#include "ptz/CPTZHandler.h"
#include "support/MakeOwned.h"
#include "support/RecordingCapabilities.h"
#include "support/TempFolder.h"

namespace kolvex_test {

namespace {

using namespace sarnevo;

constexpr u32 kHttpTimeout = static_cast<u32>(Quick(5000).count());
constexpr int kNever = 28'000;  // of the product; beyond all its time-outs and a repetition

struct Observer : contract::ICapabilityObserver {
  void OnQueryDone() override { log.Add("done"); }
  void OnQueryFailed(u32 level, const char* text) override {
    const bool hasGroup = std::string(text).ends_with('!');
    log.Add(!hasGroup ? "no group" : level == QueryFailureLogin ? "login" : "failed");
    texts.Add(text);
  }
  HostLog log;
  HostLog texts;
};

// What the observer heard, and for a query that was done what the host's object got.
std::string Ask(Scene& scene) {
  Observer observer;
  RecordingCapabilities capabilities;
  CapabilityQuery query(
      {.detection = {kHttpTimeout, static_cast<u32>(Quick(30'000).count()), false}, .stopWait = Quick(10'000)});
  query.Init(&observer, false);
  if (query.Start(scene.Address(), 80, "admin", "kolvex", &capabilities)) {
    observer.log.WaitFor("");
  }
  query.Uninit();
  scene.MustNotTell(observer.texts.Text() + capabilities.Transcript());
  const std::string heard = observer.log.Text();
  return heard == "done\n" ? heard + capabilities.Transcript() : heard;
}

// Counts what it hears; a frame that isn't whole shows.
class CountingSink : public contract::IFrameSink {
 public:
  bool OnFrame(contract::IFrame* frame) override {
    const auto* const own = static_cast<FakeFrame*>(frame);
    const std::uint8_t* const data = own->data.data();
    damaged = damaged || own->used < 4 ||
              !((data[0] == 0xFF && data[1] == 0xD8) || (data[0] == 0 && data[1] == 0 && data[2] == 1));
    ++frames;
    return true;
  }
  void OnNoData() override { ++silences; }

  std::atomic<int> frames{0};
  std::atomic<int> silences{0};
  std::atomic<bool> damaged{false};
};

class VideoHost {
 public:
  explicit VideoHost(Scene& scene) : scene_(scene), open_(scene, &allocator_) {}
  // Not a packet may come to this port any more when it is another scene's.
  ~VideoHost() { scene_.Control("silent=1"); }

  bool Start() { return open_.driver->GetVideoCapture()->StartCapture(0, &sink, &wanted_); }
  bool Stop() { return open_.driver->GetVideoCapture()->StopCapture(0); }
  bool Restart() { return Stop() && Start(); }
  bool AwaitFrames(int count = 1, milliseconds limit = milliseconds(30'000)) {
    return Await(limit, [&, target = sink.frames + count] { return sink.frames >= target; });
  }
  /// Whether frames come or silence is reported, whichever is first.
  void AwaitNews(int frames, int silences) {
    scene_.StartClock();
    Await(Never(), [&] { return sink.frames >= frames || sink.silences >= silences; });
    scene_.Hear(sink.frames >= frames ? "" : sink.silences >= silences ? "OnNoData" : "nothing");
  }
  /// The fault ends; the stream has to come back.
  void Recover() {
    scene_.Heal();
    scene_.outcome.restarted = !AwaitFrames(3, Never());
    scene_.outcome.back = scene_.outcome.restarted ? milliseconds{0} : scene_.Elapsed();
    scene_.Must(!scene_.outcome.restarted || (Restart() && AwaitFrames(3)), "no frame comes any more");
    scene_.Must(!sink.damaged || scene_.ChangesPayload(), "a damaged frame came");
  }

  CountingSink sink;

 private:
  milliseconds Never() const { return Quick(kNever, scene_.quicker); }

  Scene& scene_;
  HostLog log_;
  FakeVideoParams wanted_{176, 144, 40};
  FakeAllocator allocator_{log_};
  SceneDriver open_;
};

struct Pins : SceneDriver {
  Pins(Scene& scene, u32 inputs, u32 outputs) : SceneDriver(scene, nullptr, inputs, outputs) {
    constexpr u32 kPoll = static_cast<u32>(Quick(2000).count());
    if (driver->GetGroup() == 1) {
      io = MakeOwned<CKolvexGroup1DigitalIO>(driver, kPoll);
    } else {
      io = MakeOwned<CKolvexGroup2DigitalIO>(driver, kPoll);
    }
    io->SetCallback(&callback);
  }
  HostLog heard;
  FakeCallback callback{heard};
  std::shared_ptr<ICaptureIOApi> io;
};

struct Head {
  explicit Head(Scene& scene) : driver(scene, nullptr) {
    reader.Attach(new CXMLPrepositionReader("Kolvex", folder.Path()));
    scene.Must(reader->Open("faults.preset", false), "no preset file");
  }
  bool Open() {
    return control.Open(reader, new CGroup1PTZComm(handler.get(), {kHttpTimeout, 3 * kHttpTimeout, false}));
  }
  /// A position is left, so that the head is at none.
  void Leave() {
    control.StartMove(PtzRight, 8);
    control.StopMove();
  }
  bool HasMessage() const { return driver.log.Count("OnDebugInfo 1") > 0; }

  SceneDriver driver;
  TempFolder folder;
  std::shared_ptr<CPTZHandler> handler = MakeOwned<CPTZHandler>(driver.driver, 1, folder.Path());
  TSmartPtr<CXMLPrepositionReader> reader;
  CPTZControl control{handler.get(), 0};
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
  scene.Plant();
  const i32 result = operation(head.control);
  const bool isHeard = result != PtzDone || head.HasMessage();
  scene.Hear(!isHeard ? "" : std::to_string(result) + (head.HasMessage() ? ", message" : ""));
  scene.Heal();
  head.Leave();
  const bool isDeleted = stored && head.control.GetPrepositionCount() == 0;
  scene.Back(isDeleted || operation(head.control) == PtzDone, "it fails without the fault too");
}

}  // namespace

void Query(Scene& scene) {
  scene.Plant();
  const std::string heard = Ask(scene);
  const bool isDone = heard.starts_with("done\n");
  scene.Hear(isDone ? "done, less" : heard.substr(0, heard.find('\n')));
  scene.Heal();
  const std::string sound = Ask(scene);
  scene.Back(sound.starts_with("done\n"), "no query is done any more");
  if (heard == sound) {
    scene.outcome.told.clear();
  }
}

void StartVideo(Scene& scene) {
  VideoHost host(scene);
  scene.Plant();
  scene.Must(host.Start(), "StartCapture gives false");
  // The first OnNoData comes with every start, while the camera gets used to its configuration.
  host.AwaitNews(1, 2);
  host.Recover();
}

void DisturbVideo(Scene& scene) {
  scene.quicker = kLessQuick;
  VideoHost host(scene);
  scene.Must(host.Start() && host.AwaitFrames(), "no stream to disturb");
  scene.Plant();
  host.AwaitNews(host.sink.frames + 5, host.sink.silences + 1);
  host.Recover();
}

void DisturbReports(Scene& scene) {
  scene.quicker = kLessQuick;
  VideoHost host(scene);
  scene.Plant();
  scene.Must(host.Start() && Eventually([&] { return scene.HasStruck(); }), "no report to spoil");
  host.AwaitNews(host.sink.frames + 5, host.sink.silences + 1);
  scene.Must(scene.Status().counters.answersOk == 0, "a spoiled report was answered");
  host.Recover();
  const auto isAnswered = [&] { return scene.Status().counters.answersOk > 0; };
  // The simulated camera reports every 5 seconds, which nothing makes quicker.
  scene.outcome.restarted = !Await(milliseconds(6000), isAnswered);
  scene.Must(!scene.outcome.restarted || (host.Restart() && Eventually(isAnswered)), "no report is answered");
}

void StopVideo(Scene& scene) {
  VideoHost host(scene);
  scene.Plant();
  scene.Must(host.Start() && host.AwaitFrames(), "no stream to stop");
  scene.StartClock();
  scene.Hear(host.Stop() ? "stopped" : "false");
  scene.Heal();
  scene.Back(host.Start() && host.AwaitFrames(), "no frame comes any more");
}

// All of the camera's inputs are low under the fault. The last one then goes high.
void PollInputs(Scene& scene) {
  const auto count = static_cast<u32>(scene.Status().inputs.size());
  std::string allLow;
  for (u32 i = 0; i < count; ++i) {
    allLow += "input " + std::to_string(i) + " is 1\n";
  }
  Pins pins(scene, count, 0);
  scene.Plant();
  pins.io->Start();
  Await(Quick(9000), [&] { return pins.heard.Count("input") >= count; });
  const std::string heard = pins.heard.Text();
  scene.Hear(heard == allLow ? "" : heard.empty() ? "nothing" : "wrong state");
  scene.Heal();
  const std::string last = "input " + std::to_string(count - 1) + " is ";
  const auto isHeard = [&](const char* state) {
    return Eventually([&] { return pins.heard.Text().ends_with(last + state); });
  };
  scene.Back(isHeard("1\n"), "an input stays wrong");
  scene.Control("input" + std::to_string(count) + "=1");
  scene.Must(isHeard("2\n"), "a change isn't seen");
}

// The fault meets the request that switches on; the one that switches off shows that the first is over.
void SwitchOutput(Scene& scene) {
  Pins pins(scene, 0, 1);
  const char* const off = pins.driver->GetGroup() == 1 ? "relayid=1&value=0" : "Out1STA=0";
  pins.io->Start();
  scene.Must(Eventually([&] { return scene.HasRequest(off); }), "no output goes low at the start");
  scene.Plant();
  pins.io->SetOutput(0, IOStateHigh);
  pins.io->SetOutput(0, IOStateLow);
  const auto hasFailed = [&] { return pins.heard.Count("failure") > 0; };
  Eventually([&] { return hasFailed() || scene.HasRequest(off, 2); });
  scene.Hear(hasFailed() ? "OnIOFailure" : "");
  scene.Heal();
  pins.io->SetOutput(0, IOStateLow);
  pins.io->SetOutput(0, IOStateHigh);
  scene.Back(Eventually([&]() -> bool { return scene.Status().outputs[0]; }), "the output stays low");
}

void OpenHead(Scene& scene) {
  Head head(scene);
  scene.Plant();
  scene.Must(head.Open(), "the control doesn't open");
  scene.Hear("");
  const bool isAvailable = head.control.IsPTZAvailable() != 0;
  scene.outcome.told = head.HasMessage() ? "message" : isAvailable ? "" : "no PTZ";
  scene.Heal();
  scene.Back(head.control.IsPTZAvailable() != 0, "no protocol is found any more");
}

void MoveHead(Scene& scene) {
  Head head(scene);
  scene.Must(head.Open(), "the control doesn't open");
  scene.Plant();
  scene.Must(head.control.StartMove(PtzLeft, 8) == PtzDone, "the movement isn't queued");
  head.control.StopMove();
  Eventually([&] { return head.HasMessage() || scene.HasRequest("write=FF0100000000"); });
  scene.Hear(head.HasMessage() ? "message" : "");
  scene.Heal();
  head.control.StartMove(PtzUp, 8);
  scene.Back(Eventually([&] { return scene.Status().head.moving; }), "the head doesn't move any more");
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
