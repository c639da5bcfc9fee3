#include <memory>
#include <string>
#include <vector>

#include "CameraConfig.h"
#include "CameraFile.h"
#include "CaptureRun.h"
#include "Failure.h"
#include "Subcommand.h"

namespace kolvex_host {

namespace {

/// More streams than this aren't looked into unless that is asked for: decoding costs far more than receiving.
constexpr std::size_t kMostInspected = 8;

constexpr const char* kFooter = R"(
Examples:
  # Ten seconds of one camera, nothing written, figures only:
  kolvex-host capture --camera 192.0.2.7,group=1,codec=mpeg4 --duration 10

  # Two cameras until Ctrl-C, every 25th picture kept, with a contact sheet:
  kolvex-host capture --camera 192.0.2.7,group=1,name=Yard --camera 192.0.2.8,group=2,name=Gate \
              --keep every 25 --out pictures

  # A hundred frames of each camera of a list, as JSON lines for another program:
  kolvex-host --json capture --cameras site.json --frames 100

User name and password come from KOLVEX_USER and KOLVEX_PASSWORD, or from the file of --credentials.

The table: frames and key frames delivered; fps and kB/s between the first and the last frame; lost and
doubled by the frame counter that the simulated camera draws into its picture; damaged pictures by a decoder;
frames that came late; how often the driver reported that no data came (once at the start is usual); time
from the start to the first frame.)";

/// The command line as it was given.
struct Arguments {
  std::vector<std::string> cameras;
  std::vector<std::string> cameraFiles;
  std::vector<std::string> lists;
  double duration = 0;
  sarnevo::u64 frames = 0;
  std::string out;
  std::string tilesFrom;
  std::vector<std::string> keep{"all"};
  std::string inspect = "auto";
  std::string progress = "auto";
};

Keep ParseKeep(const std::vector<std::string>& words) {
  if (words.size() == 1 && words[0] == "all") {
    return {1};
  }
  if (words.size() == 1 && words[0] == "none") {
    return {0};
  }
  sarnevo::u32 every = 0;
  if (words.size() == 2 && words[0] == "every" && CLI::detail::lexical_cast(words[1], every) && every != 0) {
    return {every};
  }
  throw Failure(ExitCode::Usage, "--keep takes all, none, or every N.");
}

CaptureOptions MakeOptions(const Common& common, const Arguments& arguments) {
  CaptureOptions options;
  for (const std::string& list : arguments.lists) {
    for (CameraConfig& camera : ReadCameraList(list)) {
      options.cameras.push_back(std::move(camera));
    }
  }
  for (const std::string& file : arguments.cameraFiles) {
    options.cameras.push_back(ReadCameraFile(file));
  }
  for (const std::string& camera : arguments.cameras) {
    options.cameras.push_back(common.FindCamera(camera));
  }
  if (options.cameras.empty()) {
    throw Failure(ExitCode::Usage,
                  "There is no camera to capture from: give --camera, --camera-file or --cameras.");
  }
  options.duration = Seconds(arguments.duration);
  options.frames = arguments.frames;
  if (!arguments.out.empty()) {
    options.out = arguments.out;
  }
  if (!arguments.tilesFrom.empty()) {
    if (!options.out) {
      throw Failure(ExitCode::Usage, "--tiles-from needs --out, where the contact sheet goes.");
    }
    options.tilesFrom = arguments.tilesFrom;
  }
  options.keep = ParseKeep(arguments.keep);
  options.inspect = arguments.inspect == "always" ||
                    (arguments.inspect == "auto" && options.cameras.size() <= kMostInspected);
  options.progress = arguments.progress == "never"    ? Progress::Mode::Silent
                     : arguments.progress == "always" ? Progress::Mode::Redraw
                                                      : Progress::FittingMode();
  return options;
}

}  // namespace

void AddCapture(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("capture", "Receive live video from one or many cameras");
  const auto arguments = std::make_shared<Arguments>();

  command->add_option("--camera", arguments->cameras, "A camera, ADDRESS[:PORT],KEY=VALUE,...; may be repeated")
      ->type_name("CAMERA")
      ->allow_extra_args(false);
  command
      ->add_option("--camera-file", arguments->cameraFiles,
                   "A camera from a JSON file, FILE[,KEY=VALUE,...]; may be repeated")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command->add_option("--cameras", arguments->lists, "A list of cameras from a JSON file; may be repeated")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command->add_option("--duration", arguments->duration, "Seconds to run; without it until --frames or Ctrl-C")
      ->type_name("SECONDS")
      ->check(CLI::Validator(CLI::NonNegativeNumber).description(""));
  command->add_option("--frames", arguments->frames, "End when every stream has brought so many frames")
      ->type_name("N")
      ->check(CLI::Validator(CLI::PositiveNumber).description(""));
  command
      ->add_option("--out", arguments->out,
                   "Folder for frames, contact sheet and reports, made or empty; without it nothing is written")
      ->type_name("DIR");
  command
      ->add_option("--tiles-from", arguments->tilesFrom,
                   "Named pipe, or - for standard input: each line \"CAMERA: TEXT\" adds a tile to the contact "
                   "sheet with what that camera shows at this moment")
      ->type_name("PIPE");
  command
      ->add_option("--keep", arguments->keep,
                   "Which frames become files: all, none, or every N (JPEG; an MPEG-4 stream is kept whole)")
      ->type_name("RULE")
      ->expected(1, 2);
  command
      ->add_option("--inspect", arguments->inspect,
                   "Decode all frames and follow their counter: always, never, or auto (up to 8 streams)")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
  command
      ->add_option("--progress", arguments->progress,
                   "Show how it goes: always, never, or auto (redrawn on a terminal, else a line now and then)")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
  command->footer(std::string("\n") + kCameraKeysHelp + "\n" + kFooter);
  command->final_callback([&common, arguments] {
    const CaptureOptions options = MakeOptions(common, *arguments);
    CaptureRun(common, options).Run();
  });
}

}  // namespace kolvex_host
