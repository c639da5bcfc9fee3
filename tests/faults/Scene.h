#pragma once

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "driver/CKolvexIPCaptureDriver.h"
#include "kolvex/Exports.h"
#include "simcam/CameraFarm.h"
#include "support/Eventually.h"
#include "support/FakeHost.h"

/// A scene is a camera that goes wrong in one way at one step of a dialogue, and a host that plays its part to
/// the step, hears what it hears, and goes on once the fault has ended.
namespace kolvex_test {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// The system's times are as much shorter in a scene as this says. Streams of MPEG-4 have a key frame a second
/// all the same, so that those that are disturbed can't be so quick. Under a sanitizer everything takes so much
/// longer that times say nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsTimed = false;
constexpr int kQuicker = 5;
#else
constexpr bool kIsTimed = true;
constexpr int kQuicker = 10;
#endif
constexpr int kLessQuick = 4;

constexpr milliseconds Quick(int productMilliseconds, int quicker = kQuicker) {
  return milliseconds(productMilliseconds / quicker);
}

/// What came of a scene, in the product's time.
struct Outcome {
  std::string told{};      ///< how the host heard of the fault; empty when it didn't and had all it asked for
  milliseconds after{0};   ///< how long that took
  milliseconds back{0};    ///< from the fault's end until all was well
  bool restarted = false;  ///< it took a new StartCapture
  std::string wrong{};     ///< what must not be
};

/// The camera's side. The camera is on and sound from the construction on.
class Scene {
 public:
  /// @param lock        the farm's
  /// @param properties  of the camera, but for its address
  /// @param fault       control commands, and @p end those that end it
  Scene(simcam::CameraFarm& farm, std::mutex& lock, const std::string& properties, std::string fault,
        std::string end)
      : farm_(farm),
        lock_(lock),
        fault_(std::move(fault)),
        end_(std::move(end)),
        camera_(SwitchOn(properties)) {}
  ~Scene() {
    const std::lock_guard guard(lock_);
    farm_.Remove(&camera_);
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  Outcome outcome;
  int quicker = kQuicker;  ///< than the product, the host's part
  void Must(bool holds, const char* otherwise) { outcome.wrong += holds ? "" : otherwise + std::string("; "); }
  /// The password, plain or in the form that goes out.
  void MustNotTell(const std::string& text) {
    Must(text.find("kolvex") == text.npos && text.find("YWRtaW46a29sdmV4") == text.npos,
         "the password is shown");
  }

  const char* Address() const { return address_.c_str(); }
  void Control(const std::string& commands) {
    if (const std::string error = camera_.Control(commands); !error.empty()) {
      throw std::runtime_error(error);
    }
  }
  simcam::CameraStatus Status() { return camera_.Status(); }
  bool HasRequest(const char* part, unsigned count = 1) {
    return camera_.WaitForRequest(part, milliseconds(0), count);
  }

  void StartClock() { begin_ = Clock::now(); }
  milliseconds Elapsed() const {
    return std::chrono::duration_cast<milliseconds>((Clock::now() - begin_) * quicker);
  }
  /// The fault comes, and the clock runs.
  void Plant() {
    Control(fault_);
    StartClock();
  }
  void Hear(const std::string& told) {
    outcome.told = told;
    outcome.after = Elapsed();
  }
  /// The fault ends, a camera that was gone is there again, and the clock runs.
  void Heal() {
    Control(end_);
    camera_.WaitUntil([](const simcam::CameraStatus& status) { return status.up; }, kWaitLimit);
    StartClock();
  }
  void Back(bool isBack, const char* otherwise) {
    Must(isBack, otherwise);
    outcome.back = Elapsed();
  }
  /// Of a packet that is whole, which nobody can see.
  bool ChangesPayload() const { return fault_.starts_with("corrupt"); }
  /// A packet, a report or a reply was spoiled, or it couldn't be counted.
  bool HasStruck() {
    const auto counts = Status().counters.faults;
    constexpr decltype(counts) kNone{};
    return std::memcmp(&counts, &kNone, sizeof(counts)) != 0 || fault_.ends_with("=refuse") ||
           fault_ == "silent=1";
  }

 private:
  simcam::SimulatedCamera& SwitchOn(const std::string& properties) {
    static std::atomic<int> count{0};
    const int number = count++;
    address_ = "127.20." + std::to_string(number / 250) + "." + std::to_string(1 + number % 250);
    const std::lock_guard guard(lock_);
    // Equal captions share an encoder, so that hundreds of cameras cost little.
    return farm_.Add(properties + ",caption=faults,resolution=qcif,seed=1,address=" + address_);
  }

  simcam::CameraFarm& farm_;
  std::mutex& lock_;
  const std::string fault_, end_;
  std::string address_;
  simcam::SimulatedCamera& camera_;
  Clock::time_point begin_;
};

/// The driver of a scene's camera, open, with times that are as much quicker as the scene's.
struct SceneDriver {
  SceneDriver(Scene& scene, contract::IFrameAllocator* allocator, std::uint32_t inputs = 0,
              std::uint32_t outputs = 0)
      : scene(scene) {
    const simcam::CameraStatus status = scene.Status();
    const auto quick = [&](int product) { return Quick(product, scene.quicker); };
    params.address = scene.Address();
    params.user = "admin";
    params.password = "kolvex";
    params.codec = status.video.codec == simcam::Codec::Jpeg ? sarnevo::CodecMJPEG : sarnevo::CodecMPEG4;
    params.inputs = inputs;
    params.outputs = outputs;
    params.settings = CameraSettings(status.group, std::to_string(quick(5000).count()));
    driver->SetChannelTiming({.streamPass = quick(1000),
                              .pause = quick(3000),
                              .receiveTimeout = quick(5000),
                              .startingReceiveTimeout = quick(10'000),
                              .packetTimeout = quick(5000),
                              .rtspReceive = quick(2000),
                              .rtspConnectStep = quick(100),
                              .farewell = quick(5000)});
    driver->Open(&sink, allocator, &params);
  }
  ~SceneDriver() {
    DeleteIPCaptureEx3(driver);
    scene.MustNotTell(log.Text());
  }
  SceneDriver(const SceneDriver&) = delete;
  SceneDriver& operator=(const SceneDriver&) = delete;

  Scene& scene;
  HostLog log;
  FakeDebugSink sink{log};
  FakeParams params;
  sarnevo::CKolvexIPCaptureDriver* const driver =
      static_cast<sarnevo::CKolvexIPCaptureDriver*>(CreateIPCaptureEx3());
};

/// A host's part. It plants the fault, ends it and fills the outcome.
using Part = void (*)(Scene& scene);

void Query(Scene& scene);
void StartVideo(Scene& scene);      ///< the fault is there before the host starts the stream
void DisturbVideo(Scene& scene);    ///< it comes when frames do
void DisturbReports(Scene& scene);  ///< it is there before; over when reports are answered
void StopVideo(Scene& scene);
void PollInputs(Scene& scene);
void SwitchOutput(Scene& scene);
void OpenHead(Scene& scene);
void MoveHead(Scene& scene);
void StorePosition(Scene& scene);
void RecallPosition(Scene& scene);
void DeletePosition(Scene& scene);

}  // namespace kolvex_test
