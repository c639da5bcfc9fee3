#include "simcam/device/CameraSettings.h"

#include <arpa/inet.h>

#include <array>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

template <typename Number>
bool Assign(std::string_view text, std::uint64_t minimum, std::uint64_t maximum, Number& into) {
  const std::optional<std::uint64_t> number = ParseNumber(text, minimum, maximum);
  if (number) {
    into = static_cast<Number>(*number);
  }
  return number.has_value();
}

bool AssignReal(std::string_view text, double minimum, double maximum, double& into) {
  const std::optional<double> number = ParseReal(text, minimum, maximum);
  into = number.value_or(into);
  return number.has_value();
}

bool AssignAddress(const std::string& text, std::string& into) {
  in_addr parsed{};
  into = text;
  return inet_pton(AF_INET, text.c_str(), &parsed) == 1;
}

bool AssignShape(std::string_view text, std::optional<ReplyShape>& into) {
  into = text == "lines" ? ReplyShape::Lines : text == "markup" ? ReplyShape::Markup : ReplyShape::Ampersand;
  return text == "lines" || text == "markup" || text == "ampersand";
}

struct Key {
  std::string_view name;
  std::string_view allowed;
  bool (*assign)(const std::string& value, CameraSettings& settings);
};
const std::array kKeys = {
    Key{"group", "1 or 2", [](const std::string& v, CameraSettings& s) { return Assign(v, 1, 2, s.group); }},
    Key{"model", "a model of --help",
        [](const std::string& v, CameraSettings& s) { return s.model = v, FindModel(v) != nullptr; }},
    Key{"address", "a dotted IPv4 address",
        [](const std::string& v, CameraSettings& s) { return AssignAddress(v, s.address); }},
    Key{"http-port", "1 to 65535",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 1, 65535, s.httpPort); }},
    Key{"rtsp-port", "1 to 65535",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 1, 65535, s.rtspPort); }},
    Key{"rtp-port", "1024 to 65000",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 1024, 65000, s.rtpPort); }},
    Key{"user", "any text", [](const std::string& v, CameraSettings& s) { return s.userName = v, true; }},
    Key{"caption", "any text", [](const std::string& v, CameraSettings& s) { return s.caption = v, true; }},
    Key{"pan", "-30 to 30",
        [](const std::string& v, CameraSettings& s) { return AssignReal(v, -30, 30, s.pan); }},
    Key{"tilt", "-8 to 16",
        [](const std::string& v, CameraSettings& s) { return AssignReal(v, -8, 16, s.tilt); }},
    Key{"zoom", "1 to 5", [](const std::string& v, CameraSettings& s) { return AssignReal(v, 1, 5, s.zoom); }},
    Key{"mac", "any text", [](const std::string& v, CameraSettings& s) { return s.hardwareAddress = v, true; }},
    Key{"shape", "ampersand, lines or markup",
        [](const std::string& v, CameraSettings& s) { return AssignShape(v, s.shape); }},
    Key{"sampling", "420 or 422",
        [](const std::string& v, CameraSettings& s) {
          s.sampling = v == "422" ? Sampling::Yuv422 : Sampling::Yuv420;
          return v == "422" || v == "420";
        }},
    Key{"inputs", "0 to 64",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, 64, s.inputs.emplace()); }},
    Key{"outputs", "0 to 32",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, 32, s.outputs.emplace()); }},
    Key{"audio", "0 or 1",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, 1, s.audio.emplace()); }},
    Key{"serial", "0, 1 or 2",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, 2, s.head.emplace()); }},
    Key{"codec", "mjpeg or mpeg4",
        [](const std::string& v, CameraSettings& s) {
          s.video.codec = v == "mpeg4" ? Codec::Mpeg4 : Codec::Jpeg;
          return v == "mpeg4" || v == "mjpeg";
        }},
    Key{"ntsc", "0 or 1",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, 1, s.video.ntsc); }},
    Key{"resolution", "a resolution of --help",
        [](const std::string& v, CameraSettings& s) { return s.video.resolution = v, true; }},
    Key{"fps", "1 to 60",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 1, 60, s.video.fps); }},
    Key{"seed", "a whole number",
        [](const std::string& v, CameraSettings& s) { return Assign(v, 0, UINT64_MAX, s.seed); }},
};

std::string MakeHardwareAddress(const std::string& address) {
  in_addr parsed{};
  inet_pton(AF_INET, address.c_str(), &parsed);
  const std::uint32_t host = ntohl(parsed.s_addr);
  return Format("00:4B:%02X:%02X:%02X:%02X", host >> 24U, host >> 16U & 0xFFU, host >> 8U & 0xFFU,
                host & 0xFFU);
}

}  // namespace

std::optional<CameraSettings> CameraSettings::Completed(std::string& error) const {
  CameraSettings full = *this;
  if (full.model.empty()) {
    full.model = full.group == Group::One ? "P-426" : "P-410";
  }
  const Model* const known = FindModel(full.model);
  if (known == nullptr || known->group != full.group) {
    std::string names;
    for (const Model& model : Models()) {
      names += model.group == full.group ? (names.empty() ? "" : ", ") + std::string(ShortName(model)) : "";
    }
    error = Format("group %d has no model \"%s\"; it has %s", static_cast<int>(full.group), full.model.c_str(),
                   names.c_str());
    return std::nullopt;
  }
  if (SizeOf(full.group, full.video.resolution, full.video.ntsc).width == 0) {
    error = Format("group %d has no resolution \"%s\"; it has %s", static_cast<int>(full.group),
                   full.video.resolution.c_str(), ResolutionNames(full.group).c_str());
    return std::nullopt;
  }
  full.model = known->name;
  full.inputs = full.inputs.value_or(known->inputs);
  full.outputs = full.outputs.value_or(known->outputs);
  full.audio = full.audio.value_or(known->audio);
  full.head = full.head.value_or(known->head);
  full.shape = full.shape.value_or(full.group == Group::One ? ReplyShape::Ampersand : ReplyShape::Markup);
  full.sampling = full.sampling.value_or(full.group == Group::One ? Sampling::Yuv420 : Sampling::Yuv422);
  if (full.hardwareAddress.empty()) {
    full.hardwareAddress = MakeHardwareAddress(full.address);
  }
  if (full.caption.empty()) {
    full.caption =
        Format("%s  group %d  %s", full.model.c_str(), static_cast<int>(full.group), full.address.c_str());
  }
  return full;
}

bool ApplyCameraText(std::string_view text, CameraSettings& settings, std::string& error) {
  const Parameters properties = Parameters::Parse(text, ',');
  for (const auto& [name, value] : properties.items()) {
    const Key* found = nullptr;
    for (const Key& key : kKeys) {
      if (key.name == name) found = &key;
    }
    if (found == nullptr) {
      std::string names;
      for (const Key& key : kKeys) {
        names += (names.empty() ? "" : ", ") + std::string(key.name);
      }
      error = Format("a camera has no property \"%s\"; it has %s", name.c_str(), names.c_str());
      return false;
    }
    if (!found->assign(value, settings)) {
      error = Format("\"%s\" is no value for \"%s\": it must be %s", value.c_str(), name.c_str(),
                     std::string(found->allowed).c_str());
      return false;
    }
  }
  return true;
}

}  // namespace simcam
