#include "TileRequests.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "Failure.h"

namespace kolvex_host {

namespace {

int Open(const std::filesystem::path& path) {
  if (path == "-") {
    return dup(STDIN_FILENO);
  }
  struct stat facts {};
  if (stat(path.c_str(), &facts) != 0 || !S_ISFIFO(facts.st_mode)) {
    throw Failure(ExitCode::Usage, path.string() + " of --tiles-from is no named pipe; mkfifo makes one.");
  }
  // For writing too, so that neither the opening waits for a writer nor the end of one ends the pipe.
  return open(path.c_str(), O_RDWR | O_CLOEXEC);
}

}  // namespace

TileRequests::TileRequests(const std::filesystem::path& path) : descriptor_(Open(path)) {
  if (descriptor_ < 0) {
    throw Failure(ExitCode::Usage, path.string() + " of --tiles-from can't be read.");
  }
}

TileRequests::~TileRequests() { close(descriptor_); }

std::vector<TileRequest> TileRequests::Take() {
  std::array<char, 1024> buffer{};
  for (;;) {
    pollfd input{descriptor_, POLLIN, 0};
    const ssize_t count = poll(&input, 1, 0) > 0 ? read(descriptor_, buffer.data(), buffer.size()) : 0;
    if (count <= 0) {
      break;
    }
    rest_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  std::vector<TileRequest> requests;
  for (std::size_t end = 0; (end = rest_.find('\n')) != std::string::npos; rest_.erase(0, end + 1)) {
    const std::string line = rest_.substr(0, end);
    const std::size_t colon = line.find(": ");
    requests.push_back({line.substr(0, colon), colon == line.npos ? "" : line.substr(colon + 2)});
  }
  return requests;
}

}  // namespace kolvex_host
