#include "StreamFiles.h"

#include <system_error>

#include <fmt/format.h>

#include "Failure.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

constexpr const char* kIndexHeader = "frame,seconds,bytes,key,width,height,file,offset,counter\n";

std::chrono::milliseconds Milliseconds(Seconds time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time);
}

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
    : folder_(MakeFolder(folder)), codec_(codec), keep_(keep), index_(folder / "frames.csv") {
  index_.Write(kIndexHeader);
}

void StreamFiles::Write(const PooledFrame& frame, Seconds sinceStart, std::optional<sarnevo::u64> counter,
                        bool good) {
  ++frames_;
  file_.clear();
  place_.clear();
  if (good) {
    KeepFrame(frame, sinceStart);
  }
  index_.Write(fmt::format("{},{:.6f},{},{},{},{},{},{},{}\n", frames_, sinceStart.count(),
                           frame.Bytes().size(), frame.IsKey() ? 1 : 0, frame.Width(), frame.Height(), file_,
                           place_, counter ? std::to_string(*counter) : ""));
}

void StreamFiles::KeepFrame(const PooledFrame& frame, Seconds sinceStart) {
  const auto bytes = frame.Bytes();
  const bool due =
      segments_ == 0 || (keep_.segment.count() != 0 && sinceStart - segmentStart_ >= keep_.segment);
  if (due && frame.IsKey()) {
    BeginSegment(frame, sinceStart);
  }
  if (media_) {
    media_->Write(bytes, Milliseconds(sinceStart - segmentStart_), frame.IsKey());
  }
  if (stream_) {
    file_ = streamName_;
    place_ = std::to_string(offset_);
    stream_->Write(bytes);
    offset_ += bytes.size();
  } else if (frame.FourCC() == sarnevo::FrameFourCCJPEG && keep_.every != 0 &&
             (frames_ - 1) % keep_.every == 0) {
    file_ = fmt::format("{:06}.jpg", frames_);
    OutputFile::WriteWhole(folder_ / file_, bytes);
  }
}

void StreamFiles::BeginSegment(const PooledFrame& frame, Seconds sinceStart) {
  CloseSegment();
  ++segments_;
  segmentStart_ = sinceStart;
  offset_ = 0;
  const std::string stem = keep_.segment.count() != 0 ? fmt::format("stream-{:04}", segments_) : "stream";
  if (codec_ == sarnevo::CodecMPEG4 && keep_.every != 0) {
    streamName_ = stem + ".m4v";
    stream_.emplace(folder_ / streamName_);
  }
  if (keep_.mkv) {
    media_.emplace(folder_ / (stem + ".mkv"), codec_, frame.Width(), frame.Height(), frame.Bytes());
  }
}

void StreamFiles::CloseSegment() {
  if (stream_) {
    stream_->Close();
    stream_.reset();
  }
  if (media_) {
    media_->Close();
    media_.reset();
  }
}

void StreamFiles::Close() {
  CloseSegment();
  index_.Close();
}

void StreamPipe::Write(const PooledFrame& frame, Seconds sinceStart) {
  if (!first_) {
    if (!frame.IsKey()) {
      return;
    }
    first_ = sinceStart;
    if (mkv_) {
      media_.emplace("-", codec_, frame.Width(), frame.Height(), frame.Bytes());
    }
  }
  if (media_) {
    media_->Write(frame.Bytes(), Milliseconds(sinceStart - *first_), frame.IsKey());
  } else {
    raw_.Write(frame.Bytes());
  }
}

std::string StreamFolderName(std::size_t index, const std::string& cameraName) {
  constexpr std::size_t kLongest = 80;  // bytes; far below any file system's limit
  std::string name = std::to_string(index + 1) + "-";
  // Shown has put a question mark in the place of everything that can't be printed.
  const std::string shown = kolvex_tools::Shown(cameraName);
  for (const std::string_view character : kolvex_tools::Characters(shown)) {
    const char c = character[0];
    const bool plain = character.size() > 1 || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                       (c >= '0' && c <= '9') || c == '.' || c == '_';
    if (name.size() + character.size() > kLongest) {
      break;
    }
    name += plain ? character : "-";
  }
  return name;
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
