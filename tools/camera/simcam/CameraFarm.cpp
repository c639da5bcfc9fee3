#include "simcam/CameraFarm.h"

#include <algorithm>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simcam/base/EventLoop.h"
#include "simcam/base/Text.h"
#include "simcam/device/Camera.h"
#include "simcam/device/Control.h"
#include "simcam/net/TcpServer.h"
#include "simcam/picture/Canvas.h"
#include "simcam/picture/SceneRaster.h"
#include "simcam/stream/EncoderPool.h"
#include "simcam/stream/StreamHub.h"

namespace simcam {

namespace {

unsigned EncoderThreads(unsigned wanted) {
  return wanted != 0 ? wanted : std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
}

}  // namespace

/// The order matters: the pool's tasks post to the loop, and what hangs on the loop is made and ended on its
/// thread.
struct CameraFarm::Parts {
  explicit Parts(unsigned threads) : pool(EncoderThreads(threads)) {
    // So that the first stream's first picture doesn't wait for it, which takes seconds on a busy machine.
    pool.Submit([] {
      const std::lock_guard<std::mutex> guard(DrawingLock());
      SceneRaster::Shared();
    });
    loop.Call([this] {
      hub = std::make_unique<StreamHub>(loop, pool);
      pacer = std::make_unique<Pacer>(loop);
    });
  }
  ~Parts() {
    loop.Call([this] {
      control = nullptr;
      cameras.clear();
      pacer = nullptr;
      hub = nullptr;
    });
  }

  HttpReply Answer(const HttpRequest& request);

  EventLoop loop;
  EncoderPool pool;
  // Loop thread only.
  std::unique_ptr<StreamHub> hub;
  std::unique_ptr<Pacer> pacer;
  std::unique_ptr<TcpServer> control;
  std::vector<Camera*> cameras;  // not owned
  std::uint64_t next = 0;
};

HttpReply CameraFarm::Parts::Answer(const HttpRequest& request) {
  HttpReply reply;
  if (request.target == "/status") {
    nlohmann::json all = nlohmann::json::array();
    for (Camera* camera : cameras) {
      all.push_back(ToJson(camera->Status()));
    }
    reply.type = "application/json";
    reply.body = all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    return reply;
  }
  const std::size_t question = request.target.find('?');
  const std::string_view query = question == std::string::npos
                                     ? std::string_view{}
                                     : std::string_view(request.target).substr(question + 1);
  std::string address;
  std::string commands;
  for (const std::string_view item : Split(query, '&')) {
    if (item.starts_with("camera=")) {
      address = item.substr(7);
    } else {
      commands.append(commands.empty() ? "" : "&").append(item);
    }
  }
  bool found = false;
  reply.body = "ok\n";
  for (Camera* camera : cameras) {
    if (address.empty() || camera->settings().address == address) {
      found = true;
      if (const std::string error = simcam::Control(*camera, commands); !error.empty()) {
        reply.status = 400;
        reply.body = camera->settings().address + ": " + error + "\n";
      }
    }
  }
  if (!found) {
    reply.status = 404;
    reply.body = "no camera at " + address + "\n";
  }
  return reply;
}

CameraFarm::CameraFarm(unsigned encoderThreads) : parts_(std::make_unique<Parts>(encoderThreads)) {}

CameraFarm::~CameraFarm() {
  parts_->loop.Call([this] { parts_->control = nullptr; });
  cameras_.clear();
}

std::string CameraFarm::Check(const CameraSettings& settings, std::string_view commands) {
  std::string error;
  if (const std::optional<CameraSettings> complete = settings.Completed(error)) {
    // A camera that is never opened takes commands like any other.
    parts_->loop.Call([&] {
      Camera trial(parts_->loop, *parts_->hub, *parts_->pacer, *complete, 0);
      error = simcam::Control(trial, commands);
    });
  }
  return error;
}

SimulatedCamera* CameraFarm::Add(const CameraSettings& settings, std::string& error) {
  const std::optional<CameraSettings> complete = settings.Completed(error);
  if (!complete) {
    return nullptr;
  }
  std::unique_ptr<Camera> camera;
  parts_->loop.Call([&] {
    camera = std::make_unique<Camera>(parts_->loop, *parts_->hub, *parts_->pacer, *complete, parts_->next++);
    if (camera->Open(error)) {
      parts_->cameras.push_back(camera.get());
    } else {
      camera = nullptr;
    }
  });
  if (camera == nullptr) {
    return nullptr;
  }
  cameras_.push_back(std::make_unique<SimulatedCamera>(parts_->loop, std::move(camera)));
  return cameras_.back().get();
}

SimulatedCamera& CameraFarm::Add(const CameraSettings& settings) {
  std::string error;
  SimulatedCamera* const camera = Add(settings, error);
  if (camera == nullptr) {
    throw std::runtime_error(error);
  }
  return *camera;
}

SimulatedCamera& CameraFarm::Add(std::string_view properties) {
  CameraSettings settings;
  std::string error;
  if (!ApplyCameraText(properties, settings, error)) {
    throw std::runtime_error(error);
  }
  return Add(settings);
}

void CameraFarm::Remove(SimulatedCamera* camera) {
  const auto found = std::find_if(cameras_.begin(), cameras_.end(),
                                  [camera](const auto& candidate) { return candidate.get() == camera; });
  if (found != cameras_.end()) {
    const auto index = found - cameras_.begin();
    parts_->loop.Call([&] { parts_->cameras.erase(parts_->cameras.begin() + index); });
    cameras_.erase(found);
  }
}

bool CameraFarm::ServeControl(const std::string& address, std::uint16_t port, std::string& error) {
  bool served = false;
  parts_->loop.Call([&] {
    parts_->control = std::make_unique<TcpServer>(parts_->loop, [this](Connection& connection) {
      return std::make_unique<HttpService>(
          connection, [this](const HttpRequest& request) { return parts_->Answer(request); });
    });
    served = parts_->control->Listen(address, port, error);
  });
  return served;
}

std::size_t CameraFarm::encoders() {
  std::size_t count = 0;
  parts_->loop.Call([&] { count = parts_->hub->sources(); });
  return count;
}

}  // namespace simcam
