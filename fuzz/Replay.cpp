// Runs every target over the files of its corpus, which holds one folder per target: what once was a finding
// stays a test, with any compiler.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "FuzzTarget.h"

namespace kolvex_fuzz {

namespace {

struct Entry {
  const char* name;
  Target target;
};

std::vector<Entry>& Entries() {
  static std::vector<Entry> entries;
  return entries;
}

std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  bytes.shrink_to_fit();  // so that a sanitizer sees a look past the end
  return bytes;
}

std::size_t Replay(const Entry& entry, const std::filesystem::path& folder) {
  std::size_t count = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    std::cout << entry.name << ' ' << file.path().filename().string()
              << std::endl;  // flushed: it may be the last
    const auto input = ReadFile(file.path());
    entry.target(input);
    // Cut inputs find the border of whatever the whole one leads to.
    const std::size_t step = std::max<std::size_t>(1, input.size() / 16);
    for (std::size_t size = 0; size < input.size(); size += step) {
      const std::vector<std::uint8_t> cut(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size));
      entry.target(cut);
    }
    ++count;
  }
  return count;
}

}  // namespace

Registration::Registration(const char* name, Target target) { Entries().push_back({name, target}); }

}  // namespace kolvex_fuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: fuzz_replay CORPUS_FOLDER\n";
    return 1;
  }
  int status = 0;
  for (const auto& entry : kolvex_fuzz::Entries()) {
    const auto folder = std::filesystem::path(argv[1]) / entry.name;
    if (!std::filesystem::is_directory(folder) || kolvex_fuzz::Replay(entry, folder) == 0) {
      std::cerr << "no corpus for " << entry.name << '\n';
      status = 1;
    }
  }
  return status;
}
