#include "StreamFiles.h"

#include <array>
#include <cstdio>
#include <system_error>

#include "Failure.h"

namespace kolvex_host {

namespace {

constexpr const char* kIndexHeader = "frame,seconds,bytes,key,width,height,file,offset,counter\n";
constexpr const char* kStreamName = "stream.m4v";

std::filesystem::path MakeFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    throw Failure(ExitCode::Output,
                  "The folder " + folder.string() + " can't be made: " + error.message() + ".");
  }
  return folder;
}

}  // namespace

StreamFiles::StreamFiles(const std::filesystem::path& folder, sarnevo::Codec codec, Keep keep)
    : folder_(MakeFolder(folder)), keep_(keep), index_(folder / "frames.csv") {
  index_.Write(kIndexHeader);
  if (codec == sarnevo::CodecMPEG4 && keep_.every != 0) {
    stream_.emplace(folder_ / kStreamName);
  }
}

void StreamFiles::Write(const PooledFrame& frame, Seconds sinceStart, std::optional<sarnevo::u64> counter) {
  const auto bytes = frame.Bytes();
  ++frames_;
  std::array<char, 32> name{};
  std::string offset;
  if (stream_) {
    std::snprintf(name.data(), name.size(), "%s", kStreamName);
    offset = std::to_string(offset_);
    stream_->Write(bytes);
    offset_ += bytes.size();
  } else if (frame.FourCC() == sarnevo::FrameFourCCJPEG && keep_.every != 0 &&
             (frames_ - 1) % keep_.every == 0) {
    std::snprintf(name.data(), name.size(), "%06llu.jpg", static_cast<unsigned long long>(frames_));
    OutputFile::WriteWhole(folder_ / name.data(), bytes);
  }
  std::array<char, 160> line{};
  std::snprintf(line.data(), line.size(), "%llu,%.6f,%zu,%d,%u,%u,%s,%s,%s\n",
                static_cast<unsigned long long>(frames_), sinceStart.count(), bytes.size(),
                frame.IsKey() ? 1 : 0, frame.Width(), frame.Height(), name.data(), offset.c_str(),
                counter ? std::to_string(*counter).c_str() : "");
  index_.Write(line.data());
}

void StreamFiles::Close() {
  if (stream_) {
    stream_->Close();
  }
  index_.Close();
}

std::string StreamFolderName(std::size_t index, const std::string& cameraName) {
  std::string name = std::to_string(index + 1) + "-";
  for (const char c : cameraName) {
    const bool plain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_';
    name += plain ? c : '-';
  }
  constexpr std::size_t kLongest = 80;  // far below any file system's limit
  return name.substr(0, kLongest);
}

void PrepareOutputFolder(const std::filesystem::path& folder) {
  MakeFolder(folder);
  std::error_code error;
  const bool empty = std::filesystem::is_empty(folder, error);
  if (error) {
    throw Failure(ExitCode::Output,
                  "The folder " + folder.string() + " can't be read: " + error.message() + ".");
  }
  if (!empty) {
    throw Failure(ExitCode::Output,
                  "The folder " + folder.string() + " isn't empty; files of two runs would mix.");
  }
}

}  // namespace kolvex_host
