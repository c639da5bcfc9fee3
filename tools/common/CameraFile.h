#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "CameraConfig.h"

/// Camera files: JSON in which a host keeps what it knows of a camera.
///
/// One camera is an object (--camera-file), several are an array of such objects (--cameras). Its members:
///
///     {
///       "address": "192.0.2.7", "port": 80, "name": "Yard",
///       "codec": "mjpeg", "size": "720x576", "interval": 40, "quality": 60,
///       "device":   { "model": "...", "channels": 1, "inputs": 2, "outputs": 1 },
///       "settings": { "1": "5000", "2": "1", "3": "1", "9": "001122334455" }
///     }
///
/// The members beside "device" and "settings" are the keys of CameraConfig::Set, as text or number. In
/// "device" further facts may be (resolutions, frame intervals ...); reading passes over what it doesn't
/// know there. "settings" holds the numbered settings exactly as a capability query publishes them, by index;
/// "group", "standard" and "timeout" are shorter ways to write the settings 2, 3 and 1. Credentials are never
/// in a camera file.
namespace kolvex_host {

/// The camera of a file, its text followed by ",KEY=VALUE,..." that override it. Completed. Throws Failure
/// (ExitCode::Usage).
CameraConfig ReadCameraFile(std::string_view pathAndKeys);

/// The cameras of a list file, each completed. Throws Failure (ExitCode::Usage).
std::vector<CameraConfig> ReadCameraList(const std::filesystem::path& path);

/// A camera as it is in a camera file.
nlohmann::json ToJson(const CameraConfig& camera);

/// What is to be in the camera file @p path after a query: @p found, in which the name and everything else that
/// was edited by hand stays as the file has it, while facts and settings are the camera's. Throws Failure
/// (ExitCode::Usage) when there is something else or another camera, unless @p force replaces it.
nlohmann::json UpdateCameraFile(const std::filesystem::path& path, nlohmann::json found, bool force);

/// Reads a JSON file. Throws Failure (ExitCode::Usage) when it can't be read or isn't JSON.
nlohmann::json ReadJson(const std::filesystem::path& path);

}  // namespace kolvex_host
