#include "Terminal.h"

#include <poll.h>
#include <unistd.h>

#include <array>

#include "Failure.h"

namespace kolvex_host {

Terminal::Terminal() {
  if (tcgetattr(STDIN_FILENO, &before_) != 0) {
    throw Failure(ExitCode::Usage, "Driving by keys needs a terminal as standard input.");
  }
  termios keys = before_;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VSUSP] = _POSIX_VDISABLE;
  keys.c_cc[VQUIT] = _POSIX_VDISABLE;
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &keys);
}

Terminal::~Terminal() { tcsetattr(STDIN_FILENO, TCSANOW, &before_); }

std::optional<std::string> Terminal::Read(std::chrono::milliseconds timeout) {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, static_cast<int>(timeout.count())) <= 0) {
    return "";
  }
  std::array<char, 256> buffer{};
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count <= 0) {
    return std::nullopt;
  }
  return std::string(buffer.data(), static_cast<std::size_t>(count));
}

std::vector<std::string> KeyReader::Split(std::string_view bytes) {
  constexpr std::array<std::string_view, 4> kArrows = {"up", "down", "right", "left"};  // final bytes A to D
  std::vector<std::string> keys;
  for (const char byte : bytes) {
    if (byte == '\x1B') {
      state_ = State::Escape;
    } else if (state_ == State::Escape) {
      state_ = byte == '[' || byte == 'O' ? State::Sequence : State::Plain;
    } else if (state_ == State::Sequence) {
      if (byte >= '@' && byte <= '~') {  // the byte that ends a sequence
        state_ = State::Plain;
        if (byte >= 'A' && byte <= 'D') {
          keys.emplace_back(kArrows[static_cast<std::size_t>(byte - 'A')]);
        }
      }
    } else {
      keys.emplace_back(1, byte);
    }
  }
  return keys;
}

}  // namespace kolvex_host
