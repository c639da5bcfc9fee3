#include "camera/Store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <system_error>

#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Failure.h"
#include "web/PrivateFile.h"

namespace kolvex_console {

using kolvex_host::CameraConfig;
using kolvex_host::ExitCode;
using kolvex_host::Failure;
using nlohmann::json;

namespace {

constexpr const char* kLogins = "credentials.json";

bool IsOpenToOthers(const std::filesystem::path& folder) {
  struct stat status {};
  return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
}

/// Nothing is in it, or a server's files.
bool IsOurs(const std::filesystem::path& folder) {
  std::error_code ignored;
  return std::filesystem::is_empty(folder, ignored) || std::filesystem::exists(folder / kLogins, ignored) ||
         std::filesystem::exists(folder / "login", ignored) ||
         std::filesystem::exists(folder / "lock", ignored);
}

std::string FileName(const std::string& name) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string file;
  for (const char each : name) {
    const auto byte = static_cast<unsigned char>(each);
    if (std::isalnum(byte) != 0 || each == '-' || each == '_') {
      file += each;
    } else {
      file += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
    }
  }
  // Its file would be that of the logins.
  return file == "credentials" ? "%63redentials" : file;
}

std::string Text(const json& value) { return value.dump(2, ' ', false, json::error_handler_t::replace) + "\n"; }

}  // namespace

Store::Store(std::filesystem::path folder) : folder_(std::move(folder)) {
  if (IsOpenToOthers(folder_) && !IsOurs(folder_)) {
    throw Failure(ExitCode::Usage, "The folder " + folder_.string() +
                                       " is open to other users and holds other things: give a folder of its "
                                       "own, or protect this one with chmod 700.");
  }
  MakePrivateFolder(folder_);
  lock_.emplace(folder_);
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    if (entry.is_directory() && entry.path().extension() == ".positions") {
      MakePrivateFolder(entry.path());
    }
  }
}

std::filesystem::path Store::FileOf(const std::string& camera) const {
  return folder_ / (FileName(camera) + ".json");
}

std::filesystem::path Store::ThumbnailsOf(const std::string& camera) const {
  return folder_ / (FileName(camera) + ".positions");
}

std::vector<KnownCamera> Store::Load(std::vector<std::string>& skipped) const {
  std::vector<KnownCamera> cameras;
  if (!IsKept()) {
    return cameras;
  }
  const std::filesystem::path logins = folder_ / kLogins;
  const auto credentials =
      std::filesystem::exists(logins) ? kolvex_host::Credentials::FromFile(logins) : kolvex_host::Credentials();
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
    const std::filesystem::path& path = entry.path();
    if (path.extension() != ".json" || path.filename() == kLogins) {
      continue;
    }
    try {
      KnownCamera camera{kolvex_host::ReadCameraFile(path.string()), {}};
      camera.login = credentials.For(camera.config.address);
      cameras.push_back(std::move(camera));
    } catch (const Failure& failure) {
      skipped.emplace_back(failure.what());
    }
  }
  std::sort(cameras.begin(), cameras.end(),
            [](const KnownCamera& a, const KnownCamera& b) { return a.config.name < b.config.name; });
  return cameras;
}

void Store::WriteLogin(const std::string& address, const kolvex_host::Login* login) const {
  const std::filesystem::path path = folder_ / kLogins;
  json file = std::filesystem::exists(path) ? kolvex_host::ReadJson(path) : json::object();
  json& cameras = file["cameras"];
  if (!cameras.is_object()) {
    cameras = json::object();
  }
  if (login) {
    cameras[address] = {{"user", login->user}, {"password", login->password}};
  } else {
    cameras.erase(address);
  }
  file.emplace("user", "");
  file.emplace("password", "");
  WritePrivateFile(path, Text(file));
}

void Store::Save(const KnownCamera& camera) {
  if (IsKept()) {
    // A login without its camera does no harm, a camera without its login would be wrong at the next start.
    WriteLogin(camera.config.address, &camera.login);
    WritePrivateFile(FileOf(camera.config.name), Text(kolvex_host::ToJson(camera.config)));
  }
}

void Store::Remove(const CameraConfig& camera) {
  if (!IsKept()) {
    return;
  }
  std::error_code error;
  std::filesystem::remove(FileOf(camera.name), error);
  if (error) {
    throw Failure(ExitCode::Output, "The camera's file can't be removed: " + error.message() + ".");
  }
  std::filesystem::remove_all(ThumbnailsOf(camera.name), error);
  std::vector<std::string> skipped;
  const auto others = Load(skipped);
  if (std::none_of(others.begin(), others.end(),
                   [&](const KnownCamera& other) { return other.config.address == camera.address; })) {
    WriteLogin(camera.address, nullptr);
  }
}

void Store::Rename(const CameraConfig& from, const std::string& to) {
  if (!IsKept()) {
    return;
  }
  CameraConfig renamed = from;
  renamed.name = to;
  // The new file first: at no moment is there none.
  WritePrivateFile(FileOf(to), Text(kolvex_host::ToJson(renamed)));
  std::error_code ignored;
  std::filesystem::remove(FileOf(from.name), ignored);
  std::filesystem::rename(ThumbnailsOf(from.name), ThumbnailsOf(to), ignored);
}

std::shared_ptr<const std::string> Store::Thumbnail(const std::string& camera,
                                                    const std::string& position) const {
  std::ifstream file(ThumbnailsOf(camera) / (FileName(position) + ".jpg"), std::ios::binary);
  if (!IsKept() || !file) {
    return nullptr;
  }
  return std::make_shared<std::string>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void Store::SaveThumbnail(const std::string& camera, const std::string& position, std::string_view jpeg) const {
  // File names have their limit; such a position has no picture after the next start.
  if (IsKept() && FileName(position).size() < 200) {
    MakePrivateFolder(ThumbnailsOf(camera));
    WritePrivateFile(ThumbnailsOf(camera) / (FileName(position) + ".jpg"), jpeg);
  }
}

void Store::RemoveThumbnail(const std::string& camera, const std::string& position) const {
  if (IsKept()) {
    std::error_code ignored;
    std::filesystem::remove(ThumbnailsOf(camera) / (FileName(position) + ".jpg"), ignored);
  }
}

}  // namespace kolvex_console
