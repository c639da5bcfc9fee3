#pragma once

#include <memory>
#include <string>
#include <vector>

#include "e2e/Board.h"
#include "support/Processes.h"

namespace kolvex_bench {

/// Who receives, and at the same time its place on the board.
enum Who : int { Bare, Library, GStreamer, GStreamerJitter, FFmpeg };

/// The sender and all receivers that take part in a comparison, each in processes of its own, alive side by side.
/// They take turns: only one of them is sent to at a time, and the others wait in the kernel.
class Lineup {
 public:
  /// Starts them all and returns when each has got frames, or at least has bound its ports. Throws
  /// std::runtime_error when one doesn't come up.
  Lineup(const Plan& plan, Board& board, const std::vector<Who>& who);

  /// @return processor time in nanoseconds of one receiver so far
  double ProcessorTime(Who who) const;
  ProcessFacts Facts(Who who) const;
  const std::vector<pid_t>& Ids(Who who) const { return receivers_[who].Ids(); }
  void Check();
  /// Ends FFmpeg. It says how many frames it has copied only then.
  double EndAndCountFFmpegFrames();

 private:
  void Start(Who who);
  void StartPeer(Who who);
  std::string Scratch(const std::string& name) const;

  const Plan plan_;
  Board& board_;
  const std::vector<Who> who_;
  std::shared_ptr<const std::string> scratch_;  // folder for the peers' files; removed after the processes
  Processes sender_;
  Processes receivers_[Board::kPlaces];
};

}  // namespace kolvex_bench
