#include "CameraFile.h"

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

#include <nlohmann/json.hpp>

#include "Failure.h"

namespace kolvex_host {

using nlohmann::json;

namespace {

constexpr sarnevo::u32 kHighestSetting = sarnevo::SettingMAC;

[[noreturn]] void Refuse(const std::filesystem::path& path, const std::string& reason) {
  throw Failure(ExitCode::Usage, "The camera file " + path.string() + " can't be used: " + reason);
}

/// A member's value as text; texts and whole numbers are taken.
std::string Text(const std::filesystem::path& path, const std::string& key, const json& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_number_unsigned()) {
    return value.dump();
  }
  Refuse(path, "\"" + key + "\" must be a text or a number.");
}

void ReadDevice(const std::filesystem::path& path, const json& device, CameraConfig& camera) {
  for (const char* key : {"model", "channels", "inputs", "outputs"}) {
    if (const auto found = device.find(key); found != device.end()) {
      camera.Set(key, Text(path, key, *found));
    }
  }
}

void ReadSettings(const std::filesystem::path& path, const json& settings, CameraConfig& camera) {
  for (const auto& [key, value] : settings.items()) {
    const bool isIndex = key.size() == 1 && key[0] >= '1' && key[0] <= static_cast<char>('0' + kHighestSetting);
    if (!isIndex) {
      Refuse(path, "there is no setting \"" + key + "\"; they are numbered from 1 to 9.");
    }
    camera.settings[static_cast<sarnevo::u32>(key[0] - '0')] = Text(path, key, value);
  }
}

CameraConfig FromJson(const std::filesystem::path& path, const json& object) {
  if (!object.is_object()) {
    Refuse(path, "a camera must be an object.");
  }
  CameraConfig camera;
  for (const auto& [key, value] : object.items()) {
    if (key != "device" && key != "settings") {
      camera.Set(key, Text(path, key, value));
    } else if (!value.is_object()) {
      Refuse(path, "\"" + key + "\" must be an object.");
    } else if (key == "device") {
      ReadDevice(path, value, camera);
    } else {
      ReadSettings(path, value, camera);
    }
  }
  return camera;
}

}  // namespace

json ReadJson(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) {
    const std::string reason = std::generic_category().message(errno);
    // A login may have been given in the place of a file's name.
    const bool mayBeLogin = path.string().find('@') != std::string::npos;
    throw Failure(ExitCode::Usage, "The file " + (mayBeLogin ? "that was given" : path.string()) +
                                       " can't be read: " + reason + ".");
  }
  try {
    return json::parse(file);
  } catch (const json::parse_error&) {
    throw Failure(ExitCode::Usage, "The file " + path.string() + " isn't JSON.");
  }
}

CameraConfig ReadCameraFile(std::string_view pathAndKeys) {
  const std::filesystem::path path(pathAndKeys.substr(0, pathAndKeys.find(',')));
  CameraConfig camera = FromJson(path, ReadJson(path));
  ApplyKeys(camera, KeysOf(pathAndKeys));
  camera.Complete();
  return camera;
}

std::vector<CameraConfig> ReadCameraList(const std::filesystem::path& path) {
  const json list = ReadJson(path);
  if (!list.is_array() || list.empty()) {
    Refuse(path, "it must be an array of cameras.");
  }
  std::vector<CameraConfig> cameras;
  for (const json& entry : list) {
    try {
      cameras.push_back(FromJson(path, entry));
      cameras.back().Complete();
    } catch (const Failure& failure) {
      throw Failure(failure.Code(), "Camera " + std::to_string(&entry - &list[0] + 1) + " of the list " +
                                        path.string() + ": " + failure.what());
    }
  }
  return cameras;
}

json ToJson(const CameraConfig& camera) {
  json settings = json::object();
  for (const auto& [index, text] : camera.settings) {
    settings[std::to_string(index)] = text;
  }
  return {
      {"address", camera.address},
      {"port", camera.port},
      {"name", camera.name},
      {"codec", camera.codec == sarnevo::CodecMJPEG ? "mjpeg" : "mpeg4"},
      {"size", std::to_string(camera.width) + "x" + std::to_string(camera.height)},
      {"interval", camera.frameInterval},
      {"quality", camera.quality},
      {"device",
       {{"model", camera.model},
        {"channels", camera.channels},
        {"inputs", camera.inputs},
        {"outputs", camera.outputs}}},
      {"settings", std::move(settings)},
  };
}

json UpdateCameraFile(const std::filesystem::path& path, json found, bool force) {
  std::error_code error;
  if (force || !std::filesystem::is_regular_file(path, error)) {
    return found;
  }
  const auto refuse = [&path](const char* reason) {
    throw Failure(ExitCode::Usage,
                  "The file " + path.string() + " " + reason + ": give --force to replace it.");
  };
  json old;
  try {
    old = ReadJson(path);
    FromJson(path, old);
  } catch (const Failure&) {
    refuse("is there and is no camera file");
  }
  if (old.contains("address") && old["address"] != found["address"]) {
    refuse("is that of another camera");
  }
  // Facts are the camera's, wishes are the person's: the time-out and the standard are wishes, too.
  for (const char* wish : {"1", "3"}) {
    if (old.contains("settings") && old["settings"].contains(wish)) {
      found["settings"][wish] = old["settings"][wish];
    }
  }
  for (const char* fact : {"address", "port", "device", "settings"}) {
    old[fact] = std::move(found[fact]);
  }
  old.erase("group");  // the settings have it
  for (const auto& [key, value] : found.items()) {
    const bool hasPace = key == "interval" && old.contains("fps");
    if (!old.contains(key) && !value.is_null() && !hasPace) {
      old[key] = value;
    }
  }
  return old;
}

}  // namespace kolvex_host
