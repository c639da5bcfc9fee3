#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Diagnosis.h"
#include "Failure.h"
#include "FramePool.h"
#include "Output.h"
#include "PictureCodec.h"
#include "Subcommand.h"
#include "kolvex/IFrameSink.h"

namespace kolvex_host {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr const char* kFooter = R"(
Examples:
  kolvex-host snapshot 192.0.2.7
  kolvex-host snapshot 192.0.2.7,size=352x288,quality=90 -o yard.jpg
  kolvex-host snapshot 192.0.2.7 -o - | display -

The camera is set to the wanted picture first, which takes it about 3 seconds.)";

struct Arguments {
  CameraChoice camera;
  std::string file;
};

/// Keeps the latest frame. The library's receive thread puts it in, the main thread takes it.
class LatestFrame final : public sarnevo::ipcapture::IFrameSink {
 public:
  bool OnFrame(sarnevo::ipcapture::IFrame* frame) override {
    FrameRef latest(static_cast<PooledFrame&>(*frame));  // of our own pool
    const std::lock_guard guard(lock_);
    std::swap(frame_, latest);
    ++count_;
    return true;
  }
  void OnNoData() override {}

  FrameRef Take() {
    const std::lock_guard guard(lock_);
    return std::move(frame_);
  }
  sarnevo::u64 Count() {
    const std::lock_guard guard(lock_);
    return count_;
  }

 private:
  std::mutex lock_;
  FrameRef frame_;          // guarded by lock_
  sarnevo::u64 count_ = 0;  // guarded by lock_
};

/// What came may be a picture that nobody asked for: a camera of group 2 that refuses the login isn't set, and streams
/// as it was set before. Throws Failure then; another size alone is a warning.
void CheckPicture(const Common& common, const CameraConfig& camera, const Login& login,
                  const PooledFrame& frame) {
  const bool asAsked = frame.Width() == camera.width && frame.Height() == camera.height;
  if (!asAsked || camera.Group() == "2") {
    const auto reason = common.WhyNoAnswer(camera, login);
    if (reason && reason->exit == ExitCode::Login) {
      throw ToldNow(reason->exit, reason->Sentence());
    }
  }
  if (!asAsked) {
    fmt::print(stderr, "kolvex-host: {} sends {}x{}, not {}x{} as asked: it may not have this size.\n",
               camera.name, frame.Width(), frame.Height(), camera.width, camera.height);
  }
}

/// The latest frame, if it is a picture that can be decoded.
FrameRef TakeGood(LatestFrame& latest, PictureDecoder& decoder) {
  FrameRef frame = latest.Take();
  return frame && frame->IsKey() && decoder.Decode(frame->Bytes()) ? std::move(frame) : FrameRef();
}

/// Gives a JPEG file of the camera's first good picture. Throws Failure with the reason why there is none. A picture
/// that comes while the reason is looked for is as good as one that was quicker.
std::vector<sarnevo::u8> TakePicture(const Common& common, const CameraConfig& camera) {
  constexpr std::size_t kFrames = 8;
  constexpr milliseconds kTick{20};
  constexpr milliseconds kUsual{4500};   // a stream begins 3.3 seconds after its start
  constexpr milliseconds kLate{10'000};  // for one of a busy camera, of which all else is well
  FramePool pool(kFrames);
  LatestFrame latest;
  const Login login = common.LoginFor(camera);
  const std::shared_ptr<Library> library = common.LoadLibrary();
  CameraSession session(*library, camera, login, latest, pool, common.MakeLog());
  PictureDecoder decoder(camera.codec);
  PatientWait wait(common.stop, fmt::format("Waiting for a picture of {} ...", camera.address));
  session.Start();
  const Clock::time_point start = Clock::now();
  FrameRef good;
  // True when a picture came, and when the person wants an end.
  const auto isOver = [&](milliseconds pause) {
    good = TakeGood(latest, decoder);
    return good || wait(pause);
  };
  const auto isOverWithin = [&](milliseconds limit) {
    bool isEnd = false;
    while (!isEnd && Clock::now() - start < limit) {
      isEnd = isOver(kTick);
    }
    return isEnd;
  };
  std::optional<Reason> reason;
  const auto look = [&](std::stop_token stop) {
    reason = Diagnosis(camera, login).WhyNoPicture({latest.Count()}, stop);
  };
  bool isEnd = isOverWithin(kUsual) || !Beside(look, isOver);
  if (!isEnd && (reason->cause == Reason::Cause::PacketsBlocked || reason->cause == Reason::Cause::Unusable)) {
    isEnd = isOverWithin(kLate);
  }
  wait.Clear();
  if (good) {
    CheckPicture(common, camera, login, *good);
    return camera.codec == sarnevo::CodecMJPEG
               ? std::vector<sarnevo::u8>(good->Bytes().begin(), good->Bytes().end())
               : PictureEncoder().Encode(decoder.GetPicture());
  }
  if (isEnd) {
    throw Failure(ExitCode::NoFrames, "It was ended before a picture came.");
  }
  throw ToldNow(reason->exit, reason->Sentence());
}

void Run(const Common& common, const Arguments& arguments) {
  if (common.json && arguments.file == "-") {
    throw Failure(ExitCode::Usage, "-o - and --json both want standard output.");
  }
  if (!arguments.file.empty()) {
    OutputFile::CheckPlace(arguments.file);
  }
  const CameraConfig camera = arguments.camera.Read(common);
  const std::string file = arguments.file.empty() ? camera.address + ".jpg" : arguments.file;
  const std::vector<sarnevo::u8> picture = TakePicture(common, camera);
  OutputFile::WriteWhole(file, picture);
  if (file == "-") {
    return;
  }
  if (common.json) {
    PrintJson({{"event", "snapshot"}, {"camera", camera.name}, {"file", file}, {"bytes", picture.size()}});
  } else {
    Print(fmt::format("Saved a picture of {} in {}.\n", camera.name, file));
  }
}

}  // namespace

void AddSnapshot(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("snapshot", "Save one picture of a camera");
  const auto arguments = std::make_shared<Arguments>();
  arguments->camera.AddTo(*command, true);
  command->add_option("-o,--output", arguments->file, "The JPEG file (ADDRESS.jpg), or - for standard output")
      ->type_name("FILE");
  command->footer(kFooter);
  command->final_callback([&common, arguments] { Run(common, *arguments); });
}

}  // namespace kolvex_host
