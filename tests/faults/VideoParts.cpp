// The host's part in all that has to do with a stream.
#include <atomic>

#include "driver/CKolvexIPCaptureDriver.h"
#include "faults/Scene.h"
#include "kolvex/Exports.h"
#include "support/FakeHost.h"

namespace kolvex_test {

namespace {

constexpr int kNever = 28'000;  // of the product; beyond all its time-outs and a repetition

/// Counts what it hears; a frame that isn't whole shows.
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
  explicit VideoHost(Scene& scene, int times = kQuicker) : quicker(times), scene_(scene) {
    const simcam::CameraStatus status = scene.Status();
    const auto quick = [this](int product) { return Quick(product, quicker); };
    params.address = scene.Address();
    params.user = "admin";
    params.password = "kolvex";
    params.codec = status.video.codec == simcam::Codec::Jpeg ? sarnevo::CodecMJPEG : sarnevo::CodecMPEG4;
    params.settings = {{1, std::to_string(quick(5000).count())},
                       {2, status.group},
                       {3, "1"},
                       {4, "16"},
                       {5, "4"},
                       {6, "3000"},
                       {7, "256"},
                       {8, "256,3000,e"}};
    driver.SetChannelTiming({.streamPass = quick(1000),
                             .pause = quick(3000),
                             .receiveTimeout = quick(5000),
                             .startingReceiveTimeout = quick(10'000),
                             .packetTimeout = quick(5000),
                             .rtspReceive = quick(2000),
                             .rtspConnectStep = quick(100)});
    driver.Open(nullptr, &allocator, &params);
  }
  ~VideoHost() {
    // Not a packet may come to this port any more when it is another scene's.
    scene_.Control("silent=1");
    DeleteIPCaptureEx3(&driver);
  }

  bool Start() { return driver.GetVideoCapture()->StartCapture(0, &sink, &wanted); }
  bool Stop() { return driver.GetVideoCapture()->StopCapture(0); }
  bool AwaitFrames(milliseconds limit, int count = 1) {
    return Await(limit, [&, target = sink.frames + count] { return sink.frames >= target; });
  }
  /// Whether frames come or silence is told, whichever is first.
  void AwaitNews(Outcome& outcome, int frames, int silences) {
    const Stopwatch watch;
    Await(Quick(kNever, quicker), [&] { return sink.frames >= frames || sink.silences >= silences; });
    outcome.after = watch.Read(quicker);
    outcome.told = sink.frames >= frames ? "" : sink.silences >= silences ? "OnNoData" : "nothing";
  }
  /// The fault ends; the stream has to come back.
  void Recover(Outcome& outcome) {
    const Stopwatch watch = scene_.Heal();
    outcome.restarted = !AwaitFrames(Quick(kNever, quicker), 3);
    outcome.back = outcome.restarted ? milliseconds{0} : watch.Read(quicker);
    outcome.Must(!outcome.restarted || (Restart() && AwaitFrames(kSound, 3)), "no frame comes any more");
    outcome.Must(!sink.damaged, "a damaged frame came");
  }
  bool Restart() { return Stop() && Start(); }

  const int quicker;
  CountingSink sink;

 private:
  Scene& scene_;
  HostLog log;
  FakeParams params;
  FakeVideoParams wanted{176, 144, 40};
  FakeAllocator allocator{log};
  sarnevo::CKolvexIPCaptureDriver& driver =
      *static_cast<sarnevo::CKolvexIPCaptureDriver*>(CreateIPCaptureEx3());
};

}  // namespace

Outcome StartVideo(Scene& scene) {
  VideoHost host(scene);
  scene.Plant();
  Outcome outcome;
  outcome.Must(host.Start(), "StartCapture gives false");
  // The first OnNoData comes with every start, while the camera gets used to its configuration.
  host.AwaitNews(outcome, 1, 2);
  host.Recover(outcome);
  return outcome;
}

Outcome DisturbVideo(Scene& scene) {
  VideoHost host(scene, kLessQuick);
  Outcome outcome;
  outcome.Must(host.Start() && host.AwaitFrames(kSound), "no stream to disturb");
  scene.Plant();
  host.AwaitNews(outcome, host.sink.frames + 5, host.sink.silences + 1);
  host.Recover(outcome);
  return outcome;
}

Outcome DisturbReports(Scene& scene) {
  VideoHost host(scene, kLessQuick);
  scene.Plant();
  Outcome outcome;
  outcome.Must(host.Start() && Await(kSound, [&] { return scene.HasStruck(); }), "no report to spoil");
  host.AwaitNews(outcome, host.sink.frames + 5, host.sink.silences + 1);
  outcome.Must(scene.Status().counters.answersOk == 0, "a spoiled report was answered");
  host.Recover(outcome);
  const auto isAnswered = [&] { return scene.Status().counters.answersOk > 0; };
  // The simulated camera reports every 5 seconds, which nothing makes quicker.
  outcome.restarted = !Await(milliseconds(6000), isAnswered);
  outcome.Must(!outcome.restarted || (host.Restart() && Await(kSound, isAnswered)), "no report is answered");
  return outcome;
}

Outcome StopVideo(Scene& scene) {
  VideoHost host(scene);
  scene.Plant();
  Outcome outcome;
  outcome.Must(host.Start() && host.AwaitFrames(kSound), "no stream to stop");
  const Stopwatch watch;
  outcome.told = host.Stop() ? "stopped" : "false";
  outcome.after = watch.Read();
  const Stopwatch healed = scene.Heal();
  outcome.Must(host.Start() && host.AwaitFrames(kSound), "no frame comes any more");
  outcome.back = healed.Read();
  return outcome;
}

}  // namespace kolvex_test
