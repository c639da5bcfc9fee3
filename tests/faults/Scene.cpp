#include "faults/Scene.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "kolvex/Exports.h"

namespace kolvex_test {

namespace {

std::string NextAddress() {
  static std::atomic<int> count{0};
  const int number = count++;
  return "127.20." + std::to_string(number / 250) + "." + std::to_string(1 + number % 250);
}

simcam::SimulatedCamera& SwitchOn(simcam::CameraFarm& farm, std::mutex& lock, const std::string& properties) {
  const std::lock_guard guard(lock);
  // Equal captions share an encoder, so that hundreds of cameras cost little.
  return farm.Add(properties + ",caption=faults,resolution=qcif,seed=1");
}

}  // namespace

Scene::Scene(simcam::CameraFarm& farm, std::mutex& lock, const std::string& properties, std::string fault,
             std::string end)
    : farm_(farm),
      lock_(lock),
      fault_(std::move(fault)),
      end_(std::move(end)),
      address_(NextAddress()),
      camera_(SwitchOn(farm, lock, properties + ",address=" + address_)) {}

Scene::~Scene() {
  const std::lock_guard guard(lock_);
  farm_.Remove(&camera_);
}

void Scene::Control(const std::string& commands) {
  if (const std::string error = camera_.Control(commands); !error.empty()) {
    throw std::runtime_error(error);
  }
}

Stopwatch Scene::Heal() {
  Control(end_);
  camera_.WaitUntil([](const simcam::CameraStatus& status) { return status.up; }, milliseconds(10'000));
  return {};
}

bool Scene::HasStruck() {
  const simcam::FaultCounts counts = Status().counters.faults;
  return counts.lost + counts.duplicated + counts.reordered + counts.truncated + counts.corrupted +
                 counts.garbage + counts.oversized + counts.emptied + counts.strangers + counts.mistyped +
                 counts.unmarked + counts.reports + counts.httpReplies + counts.rtspReplies + counts.reboots >
             0 ||
         fault_.ends_with("=refuse") || fault_ == "silent=1";
}

SceneDriver::SceneDriver(Scene& scene, int quicker, contract::IDebugInfoSink* sink,
                         contract::IFrameAllocator* allocator, std::uint32_t inputs, std::uint32_t outputs)
    : driver(static_cast<sarnevo::CKolvexIPCaptureDriver*>(CreateIPCaptureEx3())) {
  const simcam::CameraStatus status = scene.Status();
  const auto quick = [&](int product) { return Quick(product, quicker); };
  params.address = scene.Address();
  params.user = "admin";
  params.password = "kolvex";
  params.codec = status.video.codec == simcam::Codec::Jpeg ? sarnevo::CodecMJPEG : sarnevo::CodecMPEG4;
  params.inputs = inputs;
  params.outputs = outputs;
  params.settings = {{1, std::to_string(quick(5000).count())},
                     {2, status.group},
                     {3, "1"},
                     {4, "16"},
                     {5, "4"},
                     {6, "3000"},
                     {7, "256"},
                     {8, "256,3000,e"}};
  driver->SetChannelTiming({.streamPass = quick(1000),
                            .pause = quick(3000),
                            .receiveTimeout = quick(5000),
                            .startingReceiveTimeout = quick(10'000),
                            .packetTimeout = quick(5000),
                            .rtspReceive = quick(2000),
                            .rtspConnectStep = quick(100)});
  driver->Open(sink, allocator, &params);
}

SceneDriver::~SceneDriver() { DeleteIPCaptureEx3(driver); }

}  // namespace kolvex_test
