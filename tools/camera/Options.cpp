#include "Options.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <utility>

#include "Texts.h"
#include "kolvex/Version.h"
#include "simcam/base/Text.h"
#include "simcam/device/Control.h"
#include "simcam/device/Models.h"

namespace {

constexpr const char* kAbout =
    "Simulated IP cameras on addresses of the loopback.\n"
    "\n"
    "Each camera answers HTTP (CGI), RTSP on port 554 and streams a drawn scene with a clock and a frame\n"
    "counter over RTP. Without --camera and --count four cameras start: group 1 at 127.0.1.1 (MJPEG) and\n"
    "127.0.1.2 (MPEG-4), group 2 at 127.0.2.1 (MJPEG) and 127.0.2.2 (MPEG-4).\n"
    "Ports below 1024 need root, or a network namespace of your own:\n"
    "  unshare --user --map-root-user --net sh -c 'ip link set lo up && kolvex-camera'";

constexpr const char* kProperties =
    "A CAMERA is a list of properties, \"group=1,address=127.0.1.1,model=P-423\":\n"
    "  group        1 or 2: the firmware line (1)\n"
    "  model        see below (P-426 or P-410)\n"
    "  address      its IPv4 address (127.0.1.1)\n"
    "  http-port    (80)      rtsp-port  (554)      rtp-port  first port tried for RTP (6970)\n"
    "  user         name that requests must carry; empty lets everyone in\n"
    "  codec        mjpeg or mpeg4 until it is configured (mjpeg)\n"
    "  resolution   the CGI's word: qcif, cif, d1; group 2 also sxga, vga, qvga, qqvga (cif)\n"
    "  ntsc         0 or 1 (0)      fps        (25)      sampling  420 or 422\n"
    "  shape        of replies: ampersand, lines or markup\n"
    "  pan, tilt    degrees, and zoom, 1 to 5: where it looks at first\n"
    "  inputs, outputs, audio, serial (0 none, 1 three-byte protocol, 2 Pelco-D), mac\n"
    "  caption      text in the picture; cameras with equal captions share an encoder\n"
    "  seed         makes numbers and faults repeatable\n";

constexpr const char* kCredentials =
    "Credentials: user admin and password kolvex, unless KOLVEX_CAMERA_USER, KOLVEX_CAMERA_PASSWORD or\n"
    "--user and --password-file say otherwise.\n";

std::string Footer() {
  std::string text = std::string(kProperties) + "Models:";
  for (const simcam::Model& model : simcam::Models()) {
    text +=
        simcam::Format(" %s(%d)", std::string(simcam::ShortName(model)).c_str(), static_cast<int>(model.group));
  }
  return text + "\n\n" + kCredentials +
         "\nControl commands, \"lose=0.01&http=stall\", for --fault, for GET /sim.cgi?COMMANDS on a camera's "
         "HTTP\n"
         "port and for GET /?camera=ADDRESS&COMMANDS on the control port. GET /sim.cgi and GET /status there\n"
         "give the state as JSON. The commands:\n" +
         simcam::ControlHelp() +
         "\nExamples:\n"
         "  kolvex-camera\n"
         "  kolvex-camera --camera group=1,address=127.0.1.1,codec=mpeg4,serial=2 --control 127.0.0.1:8099\n"
         "  kolvex-camera --count 200 --first 127.1.0.1 --fleet group=2,resolution=vga --fault lose=0.001\n"
         "  curl 'http://127.0.1.1/sim.cgi?reboot=5'\n"
         "\nEnds on Ctrl-C. Exit codes: 0 ended, 1 a camera couldn't start, 2 wrong command line.";
}

/// What is wrong with the words, with what may be given instead.
std::string SentenceOf(const CLI::ParseError& error, const CLI::App& app) {
  if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr) {
    return std::string(error.what()) + "; --help explains all options";
  }
  std::string known;
  for (const CLI::Option* const option : app.get_options()) {
    known += (known.empty() ? "" : ", ") + option->get_name();
  }
  const std::string word = app.remaining().front();
  return (word.starts_with("-") ? "there is no option " : "there is a word too many, ") +
         kolvex_tools::Shown(word.substr(0, word.find('=')), 60) + "; there are " + known;
}

/// Two cameras that want the same port of one address; empty when there are none.
std::string FindClash(const std::vector<simcam::CameraSettings>& cameras) {
  std::set<std::pair<std::string, unsigned>> taken;
  for (const simcam::CameraSettings& camera : cameras) {
    for (const unsigned port : {camera.httpPort, camera.rtspPort}) {
      if (!taken.emplace(camera.address, port).second) {
        return simcam::Format(
            "two cameras or services are to listen at %s:%u: each camera needs an address of its own",
            camera.address.c_str(), port);
      }
    }
  }
  return {};
}

int Fail(const std::string& sentence) {
  std::cerr << "kolvex-camera: " << sentence << "\n";
  return 2;
}

struct Raw {
  std::vector<std::string> cameras;
  unsigned count = 0;  // 0: no fleet
  std::string countText, seconds, encoders;
  std::string first = "127.1.0.1", fleet, user, passwordFile, control;
};

bool ReadCredentials(const Raw& raw, simcam::CameraSettings& settings) {
  if (const char* const user = std::getenv("KOLVEX_CAMERA_USER")) settings.userName = user;
  if (const char* const password = std::getenv("KOLVEX_CAMERA_PASSWORD")) settings.password = password;
  if (!raw.user.empty()) settings.userName = raw.user;
  if (!raw.passwordFile.empty()) {
    std::ifstream file(raw.passwordFile);
    return static_cast<bool>(std::getline(file, settings.password));
  }
  return true;
}

/// The numbers of the command line; a sentence about the first that is wrong.
std::string ReadNumbers(Raw& raw, Options& options) {
  constexpr std::uint64_t kMostCameras = 10'000;
  if (!raw.countText.empty()) {
    const auto count = simcam::ParseNumber(raw.countText, 1, kMostCameras);
    if (!count) {
      return simcam::Format("\"%s\" is no number of cameras: --count takes 1 to 10000", raw.countText.c_str());
    }
    raw.count = static_cast<unsigned>(*count);
  }
  if (!raw.seconds.empty()) {
    const auto time =
        kolvex_tools::ParseDuration(raw.seconds, std::chrono::milliseconds(100), std::chrono::hours(24 * 365));
    if (!time) {
      return simcam::Format("\"%s\" is no time: --seconds takes 100ms to 8760h, like 90, 500ms or 10m",
                            raw.seconds.c_str());
    }
    options.duration = *time;
  }
  if (!raw.encoders.empty()) {
    const auto threads = simcam::ParseNumber(raw.encoders, 1, 64);
    if (!threads) {
      return simcam::Format("\"%s\" is no number of threads: --encoders takes 1 to 64", raw.encoders.c_str());
    }
    options.encoderThreads = static_cast<unsigned>(*threads);
  }
  return {};
}

bool IsAddress(const std::string& text) {
  in_addr parsed{};
  return inet_pton(AF_INET, text.c_str(), &parsed) == 1;
}

std::string AddressPlus(const std::string& first, unsigned index) {
  in_addr address{};
  inet_pton(AF_INET, first.c_str(), &address);
  address.s_addr = htonl(ntohl(address.s_addr) + index);
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

/// The cameras of a fleet differ in their address alone and carry one caption, so that they share an encoder.
bool AddFleet(const Raw& raw, const simcam::CameraSettings& base, Options& options, std::string& error) {
  simcam::CameraSettings settings = base;
  if (!simcam::ApplyCameraText("address=" + raw.first + "," + raw.fleet, settings, error)) {
    return false;
  }
  if (settings.caption.empty()) {
    settings.caption = simcam::Format("group %d  fleet of %u", static_cast<int>(settings.group), raw.count);
  }
  for (unsigned i = 0; i < raw.count; ++i) {
    settings.address = AddressPlus(raw.first, i);
    options.cameras.push_back(settings);
  }
  return true;
}

bool AddCameras(const Raw& raw, const simcam::CameraSettings& base, Options& options, std::string& error) {
  std::vector<std::string> texts = raw.cameras;
  if (texts.empty() && raw.count == 0) {
    texts = {"group=1,address=127.0.1.1,codec=mjpeg", "group=1,address=127.0.1.2,codec=mpeg4",
             "group=2,address=127.0.2.1,codec=mjpeg", "group=2,address=127.0.2.2,codec=mpeg4"};
  }
  for (const std::string& text : texts) {
    options.cameras.push_back(base);
    if (!simcam::ApplyCameraText(text, options.cameras.back(), error)) {
      return false;
    }
  }
  return raw.count == 0 || AddFleet(raw, base, options, error);
}

}  // namespace

std::optional<Options> ReadOptions(int count, char** arguments, int& exitCode) {
  Raw raw;
  Options options;
  CLI::App app(kAbout, "kolvex-camera");
  app.footer(Footer());
  app.add_option("--camera", raw.cameras, "start this camera; may be given several times")->type_name("CAMERA");
  app.add_option("--count", raw.countText, "start a fleet of this many equal cameras")->type_name("N");
  const CLI::Option* const first =
      app.add_option("--first", raw.first, "address of the fleet's first camera (127.1.0.1)")
          ->type_name("ADDRESS");
  const CLI::Option* const fleet =
      app.add_option("--fleet", raw.fleet, "properties of the fleet's cameras")->type_name("CAMERA");
  app.add_option("--user", raw.user, "user name of all cameras that don't name their own")->type_name("NAME");
  app.add_option("--password-file", raw.passwordFile, "file whose first line is the password")
      ->type_name("FILE");
  app.add_option("--fault", options.faults, "control commands for every camera at the start")
      ->type_name("COMMANDS");
  app.add_option("--control", raw.control, "serve control commands here")->type_name("ADDRESS:PORT");
  app.add_option("--seconds", raw.seconds, "end after that time, like 90, 500ms or 10m")->type_name("TIME");
  app.add_option("--encoders", raw.encoders, "threads that draw and encode, 1 to 64")->type_name("N");
  app.add_flag("--quiet", options.quiet, "no status line");
  app.set_version_flag("--version", "kolvex-camera " KOLVEX_VERSION_STRING, "print the version and end");
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error);  // --help
      exitCode = 0;
    } else {
      exitCode = Fail(SentenceOf(error, app));
    }
    return std::nullopt;
  }
  if (const std::string wrong = ReadNumbers(raw, options); !wrong.empty()) {
    exitCode = Fail(wrong);
    return std::nullopt;
  }

  if (raw.count == 0 && (first->count() != 0 || fleet->count() != 0)) {
    exitCode = Fail("--first and --fleet are for a fleet: give its number of cameras with --count, 1 to 10000");
    return std::nullopt;
  }

  std::string error;
  simcam::CameraSettings base;
  if (!ReadCredentials(raw, base)) {
    exitCode = Fail("can't read a password from " + raw.passwordFile);
    return std::nullopt;
  }
  if (!AddCameras(raw, base, options, error)) {
    exitCode = Fail(error);
    return std::nullopt;
  }
  if (const std::string clash = FindClash(options.cameras); !clash.empty()) {
    exitCode = Fail(clash);
    return std::nullopt;
  }
  if (!raw.control.empty()) {
    const std::size_t colon = raw.control.rfind(':');
    const auto port = simcam::ParseNumber(
        colon == std::string::npos ? std::string_view{} : std::string_view(raw.control).substr(colon + 1), 1,
        65535);
    if (!port || !IsAddress(raw.control.substr(0, colon))) {
      exitCode = Fail("--control takes ADDRESS:PORT, like 127.0.0.1:8099, not \"" + raw.control + "\"");
      return std::nullopt;
    }
    options.controlAddress = raw.control.substr(0, colon);
    options.controlPort = static_cast<std::uint16_t>(*port);
  }
  return options;
}
