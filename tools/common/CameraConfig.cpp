#include "CameraConfig.h"

#include <array>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include "Failure.h"
#include "Place.h"
#include "Texts.h"

namespace kolvex_host {

using sarnevo::u16;
using sarnevo::u32;

const char* const kCameraKeysHelp =
    "Keys of a camera (ADDRESS[:PORT],KEY=VALUE,... and camera files):\n"
    "  group=1|2            firmware group; without it the camera is asked for all that isn't given\n"
    "  codec=mjpeg|mpeg4    video format (mjpeg)\n"
    "  size=WIDTHxHEIGHT    picture in pixels (group 1: 720x576, group 2: 640x480)\n"
    "  fps=N, interval=MS   pace, as frames per second or as milliseconds between frames (interval=40)\n"
    "  quality=0..100       percent, 100 is the best (60)\n"
    "  standard=pal|ntsc    video standard (pal)\n"
    "  name=TEXT            for files, table and contact sheet (the address)\n"
    "  timeout=MS           network time-out, like 2500 or 5s (5000)\n"
    "  model=TEXT channels=N inputs=N outputs=N   facts about the device";

namespace {

[[noreturn]] void Refuse(std::string_view key, std::string_view value, const char* expected) {
  throw Failure(ExitCode::Usage, fmt::format("{} is no {}: it must be {}.", Quoted(value), key, expected));
}

std::optional<u32> Number(std::string_view text, u32 least, u32 most) {
  const auto number = kolvex_tools::ParseNumber(text, least, most);
  return number ? std::optional(static_cast<u32>(*number)) : std::nullopt;
}

/// Milliseconds, as a number alone or with a unit.
std::optional<u32> Time(std::string_view text, u32 least, u32 most) {
  using std::chrono::milliseconds;
  if (const auto number = Number(text, least, most)) {
    return number;
  }
  const bool hasUnit = !text.empty() && (text.back() == 's' || text.back() == 'm' || text.back() == 'h');
  const auto time =
      hasUnit ? kolvex_tools::ParseDuration(text, milliseconds(least), milliseconds(most)) : std::nullopt;
  return time ? std::optional(static_cast<u32>(time->count())) : std::nullopt;
}

/// A key that holds a number, and where it goes.
struct NumberKey {
  std::string_view key;
  u32 least;
  u32 most;
  const char* expected;
  void (*set)(CameraConfig& camera, u32 number);
  std::optional<u32> (*parse)(std::string_view text, u32 least, u32 most) = Number;
};

constexpr u32 kMostU16 = std::numeric_limits<u16>::max();
constexpr u32 kMostU32 = std::numeric_limits<u32>::max();

constexpr auto kNumberKeys = std::to_array<NumberKey>({
    {"port", 1, kMostU16, "a number from 1 to 65535",
     [](CameraConfig& camera, u32 number) { camera.port = static_cast<u16>(number); }},
    {"group", 1, 2, "1 or 2",
     [](CameraConfig& camera, u32 number) {
       camera.settings[sarnevo::SettingCameraGroup] = std::to_string(number);
     }},
    {"fps", 1, 1000, "a number from 1 to 1000",
     [](CameraConfig& camera, u32 number) { camera.frameInterval = static_cast<u16>(1000 / number); }},
    {"interval", 0, kMostU16, "a number of milliseconds from 0 to 65535",
     [](CameraConfig& camera, u32 number) { camera.frameInterval = static_cast<u16>(number); }, Time},
    {"quality", 0, 100, "a number from 0 to 100",
     [](CameraConfig& camera, u32 number) { camera.quality = static_cast<u16>(number); }},
    {"timeout", 1, 600'000, "a number of milliseconds from 1 to 600000, or a time like 5s",
     [](CameraConfig& camera, u32 number) {
       camera.settings[sarnevo::SettingNetworkTimeout] = std::to_string(number);
     },
     Time},
    {"channels", 1, kMostU32, "a number above 0",
     [](CameraConfig& camera, u32 number) { camera.channels = number; }},
    {"inputs", 0, kMostU32, "a number", [](CameraConfig& camera, u32 number) { camera.inputs = number; }},
    {"outputs", 0, kMostU32, "a number", [](CameraConfig& camera, u32 number) { camera.outputs = number; }},
});

void SetSize(CameraConfig& camera, std::string_view value) {
  const std::size_t cross = value.find('x');
  const auto width = Number(value.substr(0, cross), 1, kMostU16);
  const auto height = cross == value.npos ? std::nullopt : Number(value.substr(cross + 1), 1, kMostU16);
  if (!width || !height) {
    Refuse("size", value, "WIDTHxHEIGHT in pixels, like 640x480");
  }
  camera.width = static_cast<u16>(*width);
  camera.height = static_cast<u16>(*height);
}

/// What a capability query publishes for settings that the camera doesn't report by itself.
void FillDefaultSettings(CameraConfig& camera) {
  const auto fill = [&camera](u32 index, const char* text) { camera.settings.try_emplace(index, text); };
  fill(sarnevo::SettingNetworkTimeout, "5000");
  fill(sarnevo::SettingVideoStandard, "1");
  if (camera.Group() == "1") {
    fill(sarnevo::SettingMaxQualityJPEG, "16");
    fill(sarnevo::SettingMinQualityJPEG, "4");
    fill(sarnevo::SettingMaxQualityMPEG, "3000");
    fill(sarnevo::SettingMinQualityMPEG, "256");
    fill(sarnevo::SettingBitrateList, "256,512,768,1000,1500,2000,3000,e");
  }
}

}  // namespace

std::string CameraConfig::Group() const {
  const auto found = settings.find(sarnevo::SettingCameraGroup);
  return found == settings.end() ? std::string() : found->second;
}

const char* CameraConfig::CodecName() const { return codec == sarnevo::CodecMJPEG ? "MJPEG" : "MPEG-4"; }

void CameraConfig::Set(std::string_view key, std::string_view value) {
  for (const NumberKey& row : kNumberKeys) {
    if (row.key == key) {
      const auto number = row.parse(value, row.least, row.most);
      if (!number) {
        Refuse(key, value, row.expected);
      }
      row.set(*this, *number);
      return;
    }
  }
  if (key == "codec") {
    if (value != "mjpeg" && value != "mpeg4") {
      Refuse(key, value, "mjpeg or mpeg4");
    }
    codec = value == "mjpeg" ? sarnevo::CodecMJPEG : sarnevo::CodecMPEG4;
  } else if (key == "standard") {
    if (value != "pal" && value != "ntsc") {
      Refuse(key, value, "pal or ntsc");
    }
    settings[sarnevo::SettingVideoStandard] = value == "pal" ? "1" : "0";
  } else if (key == "size") {
    SetSize(*this, value);
  } else if (key == "name") {
    name = value;
  } else if (key == "model") {
    model = value;
  } else if (key == "address") {
    address = value;
  } else {
    throw Failure(ExitCode::Usage,
                  key.find("pass") != key.npos || key == "user"
                      ? "A camera holds no user name or password: give --user NAME, or set KOLVEX_USER and "
                        "KOLVEX_PASSWORD."
                      : fmt::format("A camera has no key {}; capture --help lists them.", Quoted(key)));
  }
}

void CameraConfig::Complete() {
  address = Place::Parse(address).address;
  name = kolvex_tools::Tidy(name);
  if (name.empty()) {
    name = address;
  }
  if (Group() != "1" && Group() != "2") {
    throw Failure(
        ExitCode::Usage,
        fmt::format("The camera {} needs its firmware group, group=1 or group=2: query --save writes it.",
                    name));
  }
  if (width == 0) {
    const bool first = Group() == "1";
    width = first ? 720 : 640;
    height = first ? 576 : 480;
  }
  FillDefaultSettings(*this);
}

void ApplyKeys(CameraConfig& camera, std::string_view keys) {
  while (!keys.empty()) {
    const std::size_t comma = keys.find(',');
    const std::string_view pair = keys.substr(0, comma);
    keys = comma == keys.npos ? std::string_view() : keys.substr(comma + 1);
    const std::size_t equals = pair.find('=');
    if (equals == pair.npos) {
      // Not repeated: it may be the rest of a password.
      throw Failure(ExitCode::Usage,
                    "What follows a camera's address must have the form ,KEY=VALUE,KEY=VALUE.");
    }
    camera.Set(pair.substr(0, equals), pair.substr(equals + 1));
  }
}

CameraConfig ParseCamera(std::string_view text) {
  const Place place = Place::Parse(text.substr(0, text.find(',')));
  CameraConfig camera;
  camera.address = place.address;
  camera.port = place.port;
  ApplyKeys(camera, KeysOf(text));
  return camera;
}

std::string_view KeysOf(std::string_view text) {
  const std::size_t comma = text.find(',');
  return comma == text.npos ? std::string_view() : text.substr(comma + 1);
}

}  // namespace kolvex_host
