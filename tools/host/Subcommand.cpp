#include "Subcommand.h"

#include <unistd.h>

#include <cstdio>

#include <fmt/format.h>

#include "CameraFile.h"
#include "Diagnosis.h"
#include "Failure.h"
#include "Terminal.h"
#include "Texts.h"

namespace kolvex_host {

using std::chrono::milliseconds;

PatientWait::PatientWait(StopSignal& stop, std::string text)
    : stop_(stop), text_(std::move(text)), start_(std::chrono::steady_clock::now()) {}

PatientWait::~PatientWait() { Clear(); }

void PatientWait::Clear() {
  if (drawn_) {
    std::fputs("\r\x1b[K", stderr);  // ECMA-48: erase the line
    drawn_ = false;
  }
}

bool PatientWait::operator()(milliseconds time) {
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_).count();
  if (seconds != shown_) {
    shown_ = seconds;
    if (isatty(STDERR_FILENO) != 0) {
      fmt::print(stderr, "\r{} ({} s)\x1b[K", text_, seconds);
      drawn_ = true;
    } else if (seconds == 1) {
      fmt::print(stderr, "{}\n", text_);
    }
  }
  return stop_.Wait(time);
}

std::shared_ptr<Library> Common::LoadLibrary() const {
  if (!loaded_) {
    loaded_ = std::make_shared<Library>(library.empty() ? Library::DefaultPath() : library);
  }
  return loaded_;
}

Login Common::LoginFor(const CameraConfig& camera) const {
  if (!logins_) {
    logins_ = credentials.empty() ? Credentials::FromEnvironment() : Credentials::FromFile(credentials);
    if (!user.empty()) {
      Login login{user, logins_->Usual().password};
      if (login.password.empty() && CanAsk()) {
        login.password = AskSecret(fmt::format("Password of {}: ", user), stop);
        login.typed = true;
      }
      logins_->SetUsual(std::move(login));
    }
  }
  const Login login = logins_->For(camera.address);
  if (!login.IsEmpty() || !CanAsk()) {
    return login;
  }
  const auto reason = WhyNoAnswer(camera, login);
  if (!reason || reason->cause != Reason::Cause::WrongLogin) {
    return login;
  }
  Login asked;
  asked.user = AskLine(fmt::format("User name for {}: ", camera.address), stop);
  asked.password = AskSecret("Password: ", stop);
  asked.typed = true;
  logins_->SetUsual(asked);
  return asked;
}

std::optional<Reason> Common::WhyNoAnswer(const CameraConfig& camera, const Login& login) const {
  PatientWait wait(stop, fmt::format("Asking {} ...", Place{camera.address, camera.port}.Text()));
  std::optional<Reason> reason;
  if (!Beside([&](std::stop_token ended) { reason = Diagnosis(camera, login).WhyNoAnswer(std::move(ended)); },
              std::ref(wait))) {
    throw Failure(ExitCode::Camera, "It was ended before the camera had answered.");
  }
  return reason;
}

Capabilities Common::Query(QueryOptions options) const {
  CameraConfig camera;
  camera.address = options.place.address;
  camera.port = options.place.port;
  options.login = LoginFor(camera);
  PatientWait wait(stop, fmt::format("Asking {} ...", options.place.Text()));
  return RunQuery(LoadLibrary(), options, std::ref(wait));
}

CameraConfig Common::FindCamera(const std::string& text) const {
  CameraConfig camera = ParseCamera(text);
  if (camera.Group().empty()) {
    QueryOptions options;
    options.place = {camera.address, camera.port};
    const auto standard = camera.settings.find(sarnevo::SettingVideoStandard);
    options.ntsc = standard != camera.settings.end() && standard->second != "1";
    camera = Query(options).ToCamera(options.place.address, options.place.port, camera.name);
    ApplyKeys(camera, KeysOf(text));
  }
  camera.Complete();
  return camera;
}

DriverSession::Log Common::MakeLog() const {
  if (!verbose) {
    return {};
  }
  return [](const std::string& camera, unsigned level, const char* text) {
    fmt::print(stderr, "{}: [{}] {}\n", camera, level, text);
  };
}

void CameraChoice::AddTo(CLI::App& command, bool positional) {
  CLI::Option_group* const group = command.add_option_group("Camera");
  if (positional) {
    group->add_option("address", camera, "The camera, ADDRESS[:PORT] or ADDRESS[:PORT],KEY=VALUE,...")
        ->type_name("ADDRESS");
  }
  group
      ->add_option("--camera", camera,
                   "The camera, ADDRESS[:PORT] or ADDRESS[:PORT],KEY=VALUE,...; see capture --help")
      ->type_name("CAMERA");
  group
      ->add_option("--camera-file", file,
                   "The camera from a JSON file, FILE[,KEY=VALUE,...], as query --save writes it")
      ->type_name("FILE");
}

CameraConfig CameraChoice::Read(const Common& common) const {
  if (camera.empty() == file.empty()) {
    throw Failure(ExitCode::Usage, camera.empty()
                                       ? "There is no camera: give its address by --camera, or --camera-file."
                                       : "There are two cameras: give --camera or --camera-file, not both.");
  }
  return file.empty() ? common.FindCamera(camera) : ReadCameraFile(file);
}

Failure ToldNow(ExitCode code, const std::string& sentence) {
  Failure failure(code, sentence);
  fmt::print(stderr, "kolvex-host: {}\n", sentence);
  failure.SetTold();
  return failure;
}

void WithReason(const Common& common, const CameraConfig& camera,
                const std::function<void(const Login&)>& step) {
  const Login login = common.LoginFor(camera);
  if (const auto reason = common.WhyNoAnswer(camera, login)) {
    throw Failure(reason->exit, reason->Sentence());
  }
  try {
    step(login);
  } catch (const Failure& failure) {
    if (failure.Code() != ExitCode::Camera) {
      throw;
    }
    std::optional<Reason> reason;
    try {
      reason = common.WhyNoAnswer(camera, login);
    } catch (const Failure&) {
      // The person wants no reason.
    }
    throw reason ? Failure(reason->exit, fmt::format("{} {}", failure.what(), reason->Sentence())) : failure;
  }
}

CLI::Option* AddDuration(CLI::App& command, const std::string& name, milliseconds& into,
                         const std::string& help, milliseconds least, milliseconds most) {
  const std::string range =
      fmt::format("{} to {}", kolvex_tools::DurationText(least), kolvex_tools::DurationText(most));
  return command
      .add_option_function<std::string>(
          name,
          [&into, name, least, most, range](const std::string& text) {
            const auto time = kolvex_tools::ParseDuration(text, least, most);
            if (!time) {
              throw Failure(ExitCode::Usage,
                            fmt::format("{} is no time for {}: it must be from {}, like 500ms, 10s "
                                        "or 2m.",
                                        Quoted(text), name, range));
            }
            into = *time;
          },
          fmt::format("{}; {}", help, range))
      ->type_name("TIME");
}

}  // namespace kolvex_host
