#include "OutputFile.h"

#include <cerrno>
#include <system_error>

#include "Failure.h"

namespace kolvex_host {

OutputFile::OutputFile(const std::filesystem::path& path)
    : path_(path), file_(std::fopen(path.c_str(), "wbe")) {
  if (!file_) {
    Fail();
  }
}

void OutputFile::Write(std::span<const sarnevo::u8> bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
    Fail();
  }
}

void OutputFile::Write(std::string_view text) {
  Write(std::span(reinterpret_cast<const sarnevo::u8*>(text.data()), text.size()));
}

void OutputFile::Close() {
  if (std::fclose(file_.release()) != 0) {
    Fail();
  }
}

void OutputFile::WriteWhole(const std::filesystem::path& path, std::span<const sarnevo::u8> bytes) {
  OutputFile file(path);
  file.Write(bytes);
  file.Close();
}

void OutputFile::WriteWhole(const std::filesystem::path& path, std::string_view text) {
  OutputFile file(path);
  file.Write(text);
  file.Close();
}

void OutputFile::Fail() const {
  const std::string reason = std::generic_category().message(errno);
  throw Failure(ExitCode::Output, "The file " + path_.string() + " can't be written: " + reason + ".");
}

}  // namespace kolvex_host
