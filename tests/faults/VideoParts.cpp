// The host's part in all that has to do with a stream.
#include <atomic>

#include "faults/Scene.h"

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
  explicit VideoHost(Scene& scene, int times = kQuicker)
      : quicker(times), scene_(scene), open_(scene, times, nullptr, &allocator_) {}
  // Not a packet may come to this port any more when it is another scene's.
  ~VideoHost() { scene_.Control("silent=1"); }

  bool Start() { return open_.driver->GetVideoCapture()->StartCapture(0, &sink, &wanted_); }
  bool Stop() { return open_.driver->GetVideoCapture()->StopCapture(0); }
  bool AwaitFrames(int count = 1, milliseconds limit = milliseconds(10'000)) {
    return Await(limit, [&, target = sink.frames + count] { return sink.frames >= target; });
  }
  /// Whether frames come or silence is told, whichever is first.
  void AwaitNews(int frames, int silences) {
    const Stopwatch watch;
    Await(Quick(kNever, quicker), [&] { return sink.frames >= frames || sink.silences >= silences; });
    scene_.outcome.after = watch.Read(quicker);
    scene_.outcome.told = sink.frames >= frames ? "" : sink.silences >= silences ? "OnNoData" : "nothing";
  }
  /// The fault ends; the stream has to come back.
  void Recover() {
    const Stopwatch watch = scene_.Heal();
    scene_.outcome.restarted = !AwaitFrames(3, Quick(kNever, quicker));
    scene_.outcome.back = scene_.outcome.restarted ? milliseconds{0} : watch.Read(quicker);
    scene_.Must(!scene_.outcome.restarted || (Restart() && AwaitFrames(3)), "no frame comes any more");
    scene_.Must(!sink.damaged, "a damaged frame came");
  }
  bool Restart() { return Stop() && Start(); }

  const int quicker;
  CountingSink sink;

 private:
  Scene& scene_;
  HostLog log_;
  FakeVideoParams wanted_{176, 144, 40};
  FakeAllocator allocator_{log_};
  SceneDriver open_;
};

}  // namespace

void StartVideo(Scene& scene) {
  VideoHost host(scene);
  scene.Plant();
  scene.Must(host.Start(), "StartCapture gives false");
  // The first OnNoData comes with every start, while the camera gets used to its configuration.
  host.AwaitNews(1, 2);
  host.Recover();
}

void DisturbVideo(Scene& scene) {
  VideoHost host(scene, kLessQuick);
  scene.Must(host.Start() && host.AwaitFrames(), "no stream to disturb");
  scene.Plant();
  host.AwaitNews(host.sink.frames + 5, host.sink.silences + 1);
  host.Recover();
}

void DisturbReports(Scene& scene) {
  VideoHost host(scene, kLessQuick);
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
  const Stopwatch watch;
  scene.outcome.told = host.Stop() ? "stopped" : "false";
  scene.outcome.after = watch.Read();
  const Stopwatch healed = scene.Heal();
  scene.Must(host.Start() && host.AwaitFrames(), "no frame comes any more");
  scene.outcome.back = healed.Read();
}

}  // namespace kolvex_test
