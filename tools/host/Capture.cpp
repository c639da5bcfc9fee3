#include <unistd.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "CameraConfig.h"
#include "CameraFile.h"
#include "CaptureRun.h"
#include "Failure.h"
#include "StreamFiles.h"
#include "Subcommand.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

using std::chrono::milliseconds;

/// More streams than this aren't looked into unless that is asked for: decoding costs far more than receiving.
constexpr std::size_t kMostInspected = 8;

constexpr const char* kFooter = R"(
Examples:
  # Ten seconds of pictures of one camera, nothing written, figures only:
  kolvex-host capture 192.0.2.7 --duration 10s

  # Two cameras until Ctrl-C, every 25th picture kept, with a contact sheet:
  kolvex-host capture 192.0.2.7,name=Yard 192.0.2.8,name=Gate --keep every 25 --out pictures

  # Videos of ten minutes each, for any player:
  kolvex-host capture 192.0.2.7 --out videos --keep none --mkv --segment 10m

  # Look at it, with a player or through a filter:
  kolvex-host capture 192.0.2.7 --stdout | ffplay -
  kolvex-host capture 192.0.2.7,codec=mpeg4 --stdout --mkv | ffmpeg -i - -c copy yard.mp4

  # A hundred frames of each camera of a list, as JSON lines for another program:
  kolvex-host --json capture --cameras site.json --frames 100

The table: frames and key frames delivered; fps and kB/s of the time in which the stream ran (while it runs: of the
last second); lost and doubled by the frame counter that the simulated camera draws into its picture; damaged
pictures by a decoder; frames that came late; how often the driver reported that no data came (once at the start is
usual); time from the start to the first frame.)";

/// The command line as it was given.
struct Arguments {
  std::vector<std::string> cameras;
  std::vector<std::string> cameraFiles;
  std::vector<std::string> lists;
  milliseconds duration{0};
  sarnevo::u64 frames = 0;
  std::string out;
  std::string tilesFrom;
  std::vector<std::string> keep{"all"};
  bool mkv = false;
  milliseconds segment{0};
  bool toOutput = false;
  std::string inspect = "auto";
  std::string progress = "auto";
};

/// Every which picture becomes a file.
sarnevo::u32 ParseKeep(const std::vector<std::string>& words) {
  if (words.size() == 1 && words[0] == "all") {
    return 1;
  }
  if (words.size() == 1 && words[0] == "none") {
    return 0;
  }
  const auto every = words.size() == 2 && words[0] == "every"
                         ? kolvex_tools::ParseNumber(words[1], 1, std::numeric_limits<sarnevo::u32>::max())
                         : std::nullopt;
  if (every) {
    return static_cast<sarnevo::u32>(*every);
  }
  throw Failure(ExitCode::Usage, "--keep takes all, none, or every N.");
}

/// Options that only make sense together. Before any camera is asked.
void Check(const Common& common, const Arguments& arguments) {
  const std::size_t files = arguments.cameraFiles.size() + arguments.lists.size();
  const auto refuseIf = [](bool wrong, const char* sentence) {
    if (wrong) {
      throw Failure(ExitCode::Usage, sentence);
    }
  };
  refuseIf(arguments.toOutput && common.json, "--stdout and --json both want standard output.");
  refuseIf(arguments.toOutput && arguments.cameras.size() + files > 1, "--stdout takes one camera.");
  refuseIf(arguments.toOutput && isatty(STDOUT_FILENO) != 0,
           "--stdout needs a pipe or a file: a terminal shows no pictures.");
  refuseIf(arguments.out.empty() && !arguments.toOutput && arguments.mkv, "--mkv needs --out or --stdout.");
  refuseIf(arguments.out.empty() && arguments.segment.count() != 0,
           "--segment needs --out, where the files go.");
  refuseIf(arguments.out.empty() && !arguments.tilesFrom.empty(),
           "--tiles-from needs --out, where the contact sheet goes.");
}

CaptureOptions MakeOptions(const Common& common, const Arguments& arguments) {
  Check(common, arguments);
  CaptureOptions options;
  options.keep = {ParseKeep(arguments.keep), arguments.mkv, Seconds(arguments.segment)};
  if (!arguments.out.empty()) {
    PrepareOutputFolder(arguments.out);
    options.out = arguments.out;
  }
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
                  "There is no camera to capture from: give its address, --camera-file or --cameras.");
  }
  options.duration = arguments.duration;
  options.frames = arguments.frames;
  if (!arguments.tilesFrom.empty()) {
    options.tilesFrom = arguments.tilesFrom;
  }
  options.toOutput = arguments.toOutput;
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

  command
      ->add_option("address,--camera", arguments->cameras,
                   "Cameras, each ADDRESS[:PORT] or ADDRESS[:PORT],KEY=VALUE,...; --camera may be repeated")
      ->type_name("CAMERA");
  command
      ->add_option("--camera-file", arguments->cameraFiles,
                   "A camera from a JSON file, FILE[,KEY=VALUE,...]; may be repeated")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command->add_option("--cameras", arguments->lists, "A list of cameras from a JSON file; may be repeated")
      ->type_name("FILE")
      ->allow_extra_args(false);
  AddDuration(*command, "--duration", arguments->duration,
              "How long to take each stream, from its first frame; without it until --frames or Ctrl-C",
              milliseconds(100), std::chrono::hours(24 * 7));
  command->add_option("--frames", arguments->frames, "End when every stream has brought this many frames")
      ->type_name("N")
      ->check([](const std::string& text) {
        return kolvex_tools::ParseNumber(text, 1, 1'000'000'000) ? std::string() : "it must be a number from 1";
      });
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
  command->add_flag(
      "--mkv", arguments->mkv,
      "Also one video file of each stream that players open (Matroska, copied and never encoded)");
  AddDuration(*command, "--segment", arguments->segment,
              "Begin a new .mkv or .m4v after this time, at a frame that needs none before it",
              std::chrono::seconds(1), std::chrono::hours(24));
  command->add_flag("--stdout", arguments->toOutput,
                    "The stream of the one camera to standard output: its frames, or with --mkv a video");
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
