#include "Capabilities.h"

#include <algorithm>
#include <tuple>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Texts.h"

namespace kolvex_host {

using kolvex_tools::TextTable;
using nlohmann::json;
using sarnevo::u16;
using sarnevo::u32;
using namespace sarnevo::ipcapture;

namespace {

std::string Joined(const std::vector<u32>& values) {
  std::string text;
  for (const u32 value : values) {
    text += (text.empty() ? "" : " ") + std::to_string(value);
  }
  return text;
}

const char* YesOrNo(bool yes) { return yes ? "yes" : "no"; }

}  // namespace

u32 Capabilities::Fact(u32 id) const {
  const auto found = facts_.find(id);
  return found == facts_.end() ? 0 : found->second;
}

const Capabilities::List& Capabilities::ValuesOf(u32 index) const {
  static const List none;
  const auto found = lists_.find(index);
  return found == lists_.end() ? none : found->second;
}

CameraConfig Capabilities::ToCamera(const std::string& address, u16 port, const std::string& name) const {
  CameraConfig camera;
  camera.address = address;
  camera.port = port;
  camera.name = name;
  camera.model = model_;
  camera.channels = Fact(CapabilityChannels);
  camera.inputs = Fact(CapabilityInputs);
  camera.outputs = Fact(CapabilityOutputs);
  for (const auto& [index, setting] : settings_) {
    camera.settings[index] = setting.value;
  }
  const auto best = std::min_element(resolutions_.begin(), resolutions_.end(),
                                     [](const Resolution& one, const Resolution& other) {
                                       return std::tuple(one.shortestInterval, other.width * other.height) <
                                              std::tuple(other.shortestInterval, one.width * one.height);
                                     });
  if (best != resolutions_.end()) {
    camera.width = static_cast<u16>(best->width);
    camera.height = static_cast<u16>(best->height);
    camera.frameInterval = static_cast<u16>(best->shortestInterval);
  }
  if (const List& qualities = ValuesOf(ValueListQuality); qualities.proposed != 0) {
    camera.quality = static_cast<u16>(qualities.proposed);
  }
  camera.Complete();
  return camera;
}

bool Capabilities::HasHead(const CameraConfig& camera) const {
  return Fact(CapabilityPTZ) != 0 && camera.Group() == "1" && camera.settings.contains(sarnevo::SettingMAC);
}

json Capabilities::ToFile(const CameraConfig& camera) const {
  json file = ToJson(camera);
  json& device = file["device"];
  device["ptz"] = HasHead(camera);
  device["audio"] = Fact(CapabilityAudio) != 0;
  json sizes = json::array();
  for (const Resolution& resolution : resolutions_) {
    sizes.push_back({{"size", resolution.text}, {"shortestInterval", resolution.shortestInterval}});
  }
  device["resolutions"] = std::move(sizes);
  device["frameIntervals"] = ValuesOf(ValueListFrameIntervals).values;
  device["qualities"] = ValuesOf(ValueListQuality).values;
  return file;
}

std::string Capabilities::ToTable(const CameraConfig& camera, std::size_t width) const {
  TextTable facts({{"camera"}, {camera.address + ":" + std::to_string(camera.port)}});
  facts.Add({"model", camera.model});
  facts.Add({"firmware group", camera.Group()});
  facts.Add({"channels", std::to_string(camera.channels)});
  facts.Add({"inputs, outputs", std::to_string(camera.inputs) + ", " + std::to_string(camera.outputs)});
  facts.Add({"PTZ, audio", std::string(YesOrNo(HasHead(camera))) + ", " + YesOrNo(Fact(CapabilityAudio) != 0)});
  facts.Add({"frame intervals", Joined(ValuesOf(ValueListFrameIntervals).values) + " ms"});
  facts.Add({"qualities", Joined(ValuesOf(ValueListQuality).values) + " %"});

  TextTable sizes({{"resolution"}, {"up to", true}});
  for (const Resolution& resolution : resolutions_) {
    const double interval = std::max(resolution.shortestInterval, 1U);
    sizes.Add({resolution.text, fmt::format("{:.0f} fps", 1000 / interval)});
  }
  TextTable settings({{"setting", true}, {"name"}, {"value"}});
  for (const auto& [index, setting] : settings_) {
    settings.Add({std::to_string(index), setting.name, setting.value});
  }
  return facts.Text(width) + "\n" + sizes.Text(width) + "\n" + settings.Text(width);
}

}  // namespace kolvex_host
