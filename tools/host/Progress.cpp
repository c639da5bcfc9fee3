#include "Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Texts.h"

#include <fmt/format.h>

namespace kolvex_host {

using kolvex_tools::TextTable;

namespace {

/// Pace of the lines where there is no terminal.
constexpr Seconds kLinePause{2};

/// A stream that has brought nothing for so long is called silent.
constexpr Seconds kSilence{3};

// Control sequences of ECMA-48.
constexpr const char* kEraseToEnd = "\x1b[0J";
constexpr const char* kWrapOff = "\x1b[?7l";  // a wrapped line would count twice
constexpr const char* kWrapOn = "\x1b[?7h";
std::string LinesUp(std::size_t lines) { return "\x1b[" + std::to_string(lines) + "A\r"; }

/// Rows of the terminal; a block that is higher can't be redrawn.
std::size_t TerminalRows() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row != 0 ? size.ws_row : 24;
}

std::string Block(Seconds elapsed, const std::vector<StreamReport>& streams, std::size_t rows) {
  TextTable table({{"camera"},
                   {"codec"},
                   {"size", true},
                   {"frames", true},
                   {"fps", true},
                   {"kB/s", true},
                   {"lost", true},
                   {"state"}});
  const std::size_t shown = std::min(streams.size(), rows > 5 ? rows - 5 : 1);
  for (std::size_t i = 0; i < shown; ++i) {
    const StreamReport& stream = streams[i];
    const StreamCounts& counts = stream.counts;
    const bool any = counts.frames != 0;
    const bool silent = any && elapsed - (counts.last - stream.start) > kSilence;
    table.Add({stream.camera.name, stream.camera.CodecName(),
               any ? std::to_string(counts.width) + "x" + std::to_string(counts.height) : "-",
               std::to_string(counts.frames), fmt::format("{:.1f}", counts.recentFrames),
               fmt::format("{:.1f}", counts.recentKilobytes),
               stream.pictures.counted == 0 ? "-" : std::to_string(stream.pictures.lost),
               any && !stream.HasPictures() && stream.pictures.decoded != 0 ? "damaged"
               : silent                                                     ? "silent"
               : any                                                        ? "live"
                                                                            : "waiting"});
  }
  std::string text = table.Text();
  if (shown < streams.size()) {
    text += "... and " + std::to_string(streams.size() - shown) + " more\n";
  }
  return text + fmt::format("{:.1f}", elapsed.count()) + " s, Ctrl-C ends\n";
}

std::string Line(Seconds elapsed, const std::vector<StreamReport>& streams) {
  std::string text = fmt::format("{:.0f}", elapsed.count()) + " s:";
  for (const StreamReport& stream : streams) {
    text += "  " + stream.camera.name + " " + std::to_string(stream.counts.frames);
  }
  return text + " frames\n";
}

}  // namespace

Progress::Mode Progress::FittingMode() { return isatty(STDERR_FILENO) != 0 ? Mode::Redraw : Mode::Lines; }

void Progress::Show(Seconds elapsed, const std::vector<StreamReport>& streams) {
  if (mode_ == Mode::Redraw) {
    const std::string block = Block(elapsed, streams, TerminalRows());
    // In one piece, so that nothing flickers.
    const std::string text = Erase() + kWrapOff + block + kWrapOn;
    std::fputs(text.c_str(), stderr);
    drawn_ = static_cast<std::size_t>(std::count(block.begin(), block.end(), '\n'));
  } else if (mode_ == Mode::Lines && elapsed >= nextLine_) {
    std::fputs(Line(elapsed, streams).c_str(), stderr);
    nextLine_ = elapsed + kLinePause;
  }
}

void Progress::Clear() { std::fputs(Erase().c_str(), stderr); }

/// What takes the block off the terminal.
std::string Progress::Erase() {
  const std::size_t lines = std::exchange(drawn_, 0);
  return lines == 0 ? std::string() : LinesUp(lines) + kEraseToEnd;
}

}  // namespace kolvex_host
