#include "DriverSession.h"

#include "Failure.h"
#include "kolvex/IIPDriverParams.h"
#include "kolvex/IIPVideoParams.h"

namespace kolvex_host {

namespace {

/// The program shows one stream per camera.
constexpr sarnevo::u32 kChannel = 0;

/// The host's side of IIPCaptureDriver::Open: one camera's record and login, shown through the contract's
/// interfaces. Read by the library during Open only.
class DriverParams final : public sarnevo::ipcapture::IIPDriverParams {
 public:
  /// @p camera outlives this object.
  DriverParams(const CameraConfig& camera, Login login)
      : device_(camera), connection_(camera, std::move(login)), camera_(camera) {}

  sarnevo::ipcapture::IIPDeviceInfo* GetDevice() override { return &device_; }
  sarnevo::ipcapture::IIPConnectionInfo* GetConnection() override { return &connection_; }
  const char* GetCustomSetting(sarnevo::u32 index) override {
    const auto found = camera_.settings.find(index);
    return found == camera_.settings.end() ? nullptr : found->second.c_str();
  }

 private:
  class Device final : public sarnevo::ipcapture::IIPDeviceInfo {
   public:
    explicit Device(const CameraConfig& camera) : camera_(camera) {}
    const char* GetModel() override { return camera_.model.c_str(); }
    sarnevo::u32 GetChannelCount() override { return camera_.channels; }
    sarnevo::u32 GetInputCount() override { return camera_.inputs; }
    sarnevo::u32 GetOutputCount() override { return camera_.outputs; }

   private:
    const CameraConfig& camera_;
  };

  class Connection final : public sarnevo::ipcapture::IIPConnectionInfo {
   public:
    Connection(const CameraConfig& camera, Login login) : camera_(camera), login_(std::move(login)) {}
    const char* GetAddress() override { return camera_.address.c_str(); }
    sarnevo::u16 GetPort() override { return camera_.port; }
    sarnevo::u32 GetCodec() override { return camera_.codec; }
    const char* GetUserName() override { return login_.user.c_str(); }
    const char* GetPassword() override { return login_.password.c_str(); }

   private:
    const CameraConfig& camera_;
    Login login_;
  };

  Device device_;
  Connection connection_;
  const CameraConfig& camera_;
};

/// The host's side of IIPVideoCapture::StartCapture: the wanted stream. Read during that call only.
class VideoParams final : public sarnevo::ipcapture::IIPVideoParams,
                          private sarnevo::ipcapture::IIPVideoFormat,
                          private sarnevo::ipcapture::IIPResolution,
                          private sarnevo::ipcapture::IIPVideoRate {
 public:
  /// @p camera outlives this object.
  explicit VideoParams(const CameraConfig& camera) : camera_(camera) {}

  sarnevo::ipcapture::IIPVideoFormat* GetFormat() override { return this; }
  sarnevo::ipcapture::IIPVideoRate* GetRate() override { return this; }

 private:
  void Slot1() override {}
  void Slot2() override {}
  sarnevo::ipcapture::IIPResolution* GetResolution() override { return this; }
  sarnevo::u16 GetWidth() override { return camera_.width; }
  sarnevo::u16 GetHeight() override { return camera_.height; }
  sarnevo::u16 GetFrameInterval() override { return camera_.frameInterval; }
  sarnevo::u16 GetQuality() override { return camera_.quality; }

  const CameraConfig& camera_;
};

}  // namespace

DriverSession::DriverSession(const Library& library, const CameraConfig& camera, Login login,
                             sarnevo::ipcapture::IFrameAllocator& allocator, Log log)
    : debugSink_(camera.name, std::move(log)), driver_(library.CreateDriver()) {
  DriverParams params(camera, std::move(login));
  if (!driver_->Open(&debugSink_, &allocator, &params)) {
    throw Failure(ExitCode::Refused,
                  "The driver refused to open the camera " + camera.name +
                      ": its numbered settings 2 (group) and 3 (video standard) must be right.");
  }
}

DriverSession::~DriverSession() { driver_->Close(); }

void DriverSession::DebugSink::OnDebugInfo(CDebugInfoIf* info) {
  // The record lives only during this call; the text of an empty message is null.
  if (log_ && info->GetText()) {
    log_(camera_, info->GetLevel(), info->GetText());
  }
}

CameraSession::CameraSession(const Library& library, CameraConfig camera, Login login,
                             sarnevo::ipcapture::IFrameSink& sink,
                             sarnevo::ipcapture::IFrameAllocator& allocator, DriverSession::Log log)
    : camera_(std::move(camera)),
      sink_(sink),
      driver_(library, camera_, std::move(login), allocator, std::move(log)) {
  capture_ = driver_->GetVideoCapture();
  if (!capture_) {
    throw Failure(ExitCode::Refused, "The driver has no video for the camera " + camera_.name + ".");
  }
}

CameraSession::~CameraSession() { Stop(); }

void CameraSession::Start() {
  VideoParams params(camera_);
  if (!capture_->StartCapture(kChannel, &sink_, &params)) {
    throw Failure(ExitCode::Refused,
                  "The driver refused to start the stream of the camera " + camera_.name + ".");
  }
  running_ = true;
}

void CameraSession::Stop() {
  if (running_) {
    running_ = false;
    capture_->StopCapture(kChannel);
  }
}

}  // namespace kolvex_host
