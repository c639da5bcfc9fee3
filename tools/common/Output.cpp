#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "Failure.h"

namespace kolvex_host {

namespace {

constexpr mode_t kEverybodyReads = 0666;  // less what the umask takes away

[[noreturn]] void Fail(const std::filesystem::path& path, int error) {
  throw Failure(
      ExitCode::Output,
      path == "-"
          ? "Standard output can't be written: " + std::generic_category().message(error) + "."
          : "The file " + path.string() + " can't be written: " + std::generic_category().message(error) + ".");
}

/// Takes the last @p count bytes off the end of a file, so that it ends where a whole write ended. A pipe, and a place
/// within a file, stay as they are.
void TakeBack(int descriptor, off_t count) {
  struct stat facts {};
  const off_t at = lseek(descriptor, 0, SEEK_CUR);
  if (at >= count && fstat(descriptor, &facts) == 0 && facts.st_size == at) {
    static_cast<void>(ftruncate(descriptor, at - count) == 0);
    lseek(descriptor, at - count, SEEK_SET);
  }
}

std::span<const sarnevo::u8> Bytes(std::string_view text) {
  return {reinterpret_cast<const sarnevo::u8*>(text.data()), text.size()};
}

}  // namespace

void Print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    Fail("-", errno);
  }
}

void PrintJson(const nlohmann::json& value) { Print(JsonText(value, -1) + "\n"); }

std::string JsonText(const nlohmann::json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

OutputFile::OutputFile(const std::filesystem::path& path)
    : path_(path),
      descriptor_(path == "-" ? dup(STDOUT_FILENO)
                              : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kEverybodyReads)) {
  if (descriptor_ < 0) {
    Fail(path_, errno);
  }
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

void OutputFile::Write(std::span<const sarnevo::u8> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(descriptor_, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      const int error = errno;
      TakeBack(descriptor_, static_cast<off_t>(done));
      Fail(path_, error);
    }
    done += static_cast<std::size_t>(count);
  }
}

void OutputFile::Write(std::string_view text) { Write(Bytes(text)); }

void OutputFile::Seek(sarnevo::u64 offset) {
  if (lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) < 0) {
    Fail(path_, errno);
  }
}

void OutputFile::Close() {
  if (close(std::exchange(descriptor_, -1)) != 0) {
    Fail(path_, errno);
  }
}

void OutputFile::CheckPlace(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  if (path == "-") {
    return;
  }
  if (std::filesystem::is_directory(path, error)) {
    Fail(path, EISDIR);
  }
  const auto type = std::filesystem::status(path, error).type();
  const bool isMade =
      type == std::filesystem::file_type::not_found || type == std::filesystem::file_type::regular;
  if (isMade && std::filesystem::exists(folder, error) && !std::filesystem::is_directory(folder, error)) {
    Fail(path, ENOTDIR);
  }
  if (access((isMade ? folder : path).c_str(), W_OK) != 0) {
    Fail(path, errno);
  }
}

void OutputFile::WriteWhole(const std::filesystem::path& path, std::span<const sarnevo::u8> bytes) {
  std::error_code error;
  if (path == "-" || (std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error))) {
    OutputFile file(path);  // a pipe or a device isn't replaced
    file.Write(bytes);
    file.Close();
    return;
  }
  const std::filesystem::path beside = path.parent_path() / ("." + path.filename().string() + ".part");
  try {
    OutputFile file(beside);
    file.Write(bytes);
    file.Close();
    std::filesystem::rename(beside, path, error);
    if (error) {
      Fail(path, error.value());
    }
  } catch (const Failure& failure) {
    // The name that the caller knows, not the one beside it.
    const std::string sentence = failure.what();
    const std::size_t at = sentence.find(beside.string());
    std::filesystem::remove(beside, error);
    if (at == std::string::npos) {
      throw;
    }
    throw Failure(ExitCode::Output, std::string(sentence).replace(at, beside.string().size(), path.string()));
  }
}

void OutputFile::WriteWhole(const std::filesystem::path& path, std::string_view text) {
  WriteWhole(path, Bytes(text));
}

}  // namespace kolvex_host
