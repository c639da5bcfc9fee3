#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "driver/CKolvexIPCaptureDriver.h"
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
/// longer that times tell nothing.
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

class Stopwatch {
 public:
  milliseconds Read(int quicker = kQuicker) const {
    return std::chrono::duration_cast<milliseconds>((Clock::now() - begin_) * quicker);
  }

 private:
  const Clock::time_point begin_ = Clock::now();
};

/// The camera's side. The camera is on and sound from the construction on.
class Scene {
 public:
  /// @param lock        the farm's
  /// @param properties  of the camera, but for its address
  /// @param fault       control commands, and @p end those that end it
  Scene(simcam::CameraFarm& farm, std::mutex& lock, const std::string& properties, std::string fault,
        std::string end);
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  Outcome outcome;
  void Must(bool holds, const char* otherwise) { outcome.wrong += holds ? "" : otherwise + std::string("; "); }

  const char* Address() const { return address_.c_str(); }
  void Control(const std::string& commands);
  simcam::CameraStatus Status() { return camera_.Status(); }
  bool HasRequest(const char* part, unsigned count = 1) {
    return camera_.WaitForRequest(part, milliseconds(0), count);
  }

  Stopwatch Plant() {
    Control(fault_);
    return {};
  }
  /// The fault ends, and a camera that was gone is there again.
  Stopwatch Heal();
  /// A packet, a report or a reply was spoiled, or it couldn't be counted.
  bool HasStruck();

 private:
  simcam::CameraFarm& farm_;
  std::mutex& lock_;
  const std::string fault_, end_, address_;
  simcam::SimulatedCamera& camera_;
};

/// The driver of a scene's camera, open, with times that are @p quicker.
struct SceneDriver {
  SceneDriver(Scene& scene, int quicker, contract::IDebugInfoSink* sink, contract::IFrameAllocator* allocator,
              std::uint32_t inputs = 0, std::uint32_t outputs = 0);
  ~SceneDriver();
  SceneDriver(const SceneDriver&) = delete;
  SceneDriver& operator=(const SceneDriver&) = delete;

  FakeParams params;
  sarnevo::CKolvexIPCaptureDriver* const driver;
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
