#pragma once

#include <deque>
#include <filesystem>
#include <optional>
#include <vector>

#include "CameraConfig.h"
#include "DriverSession.h"
#include "ContactSheet.h"
#include "FrameWriter.h"
#include "KernelDrops.h"
#include "Looks.h"
#include "Progress.h"
#include "Report.h"
#include "StreamSink.h"
#include "Subcommand.h"
#include "TileRequests.h"

namespace kolvex_host {

/// What a capture is to do.
struct CaptureOptions {
  std::vector<CameraConfig> cameras;
  Seconds duration{0};                             ///< of each stream, from its first frame; 0: no limit
  sarnevo::u64 frames = 0;                         ///< per stream; 0: no limit
  std::optional<std::filesystem::path> out;        ///< an empty folder
  std::optional<std::filesystem::path> tilesFrom;  ///< where wishes for more tiles come from; needs out
  Keep keep;
  bool toOutput = false;  ///< the only stream goes to standard output
  bool inspect = true;    ///< look into the pictures
  Progress::Mode progress = Progress::Mode::Silent;
  std::size_t framesPerStream = 100;  ///< size of a stream's pool
};

/// One run of `capture`, from loading the library to the reports.
class CaptureRun {
 public:
  /// Both outlive the run.
  CaptureRun(const Common& common, const CaptureOptions& options);

  /// Does everything. Throws Failure; files and reports of what has come are complete even then.
  void Run();

 private:
  /// What has been said about a stream.
  struct Told {
    bool trouble = false;
  };

  void Prepare();
  void OpenAndStart();
  /// Gives the reason, for programs: "duration", "frames", "signal", "output" or "failed".
  const char* WaitForEnd();
  /// Looks into streams from which nothing good comes.
  void LookIntoSilence(Seconds elapsed, const std::vector<StreamReport>& reports);
  void BeginLook(std::size_t stream, const StreamReport& report);
  /// A stream that ran and brought nothing any more before the end.
  bool HasDied(std::size_t stream, const StreamCounts& counts) const;
  /// Looks into all streams that are in want of it at the end, until the person wants an end.
  void LookAtEnd();
  void TellTrouble(std::size_t stream, const Reason& reason, Progress* progress);
  bool IsOver(const std::vector<StreamReport>& reports) const;
  void AddTiles(Seconds elapsed);
  void StopAll();
  std::vector<StreamReport> Reports() const;
  void Tell(const std::vector<StreamReport>& reports, const char* reason) const;
  void WriteResults(const std::vector<StreamReport>& reports) const;
  /// The failure when a stream brought no good picture, said at once.
  std::optional<Failure> MissingPictures(const std::vector<StreamReport>& reports) const;

  const Common& common_;
  const CaptureOptions& options_;
  const SteadyTime start_;
  std::optional<TileRequests> tileRequests_;
  std::vector<SheetEntry> tiles_;  // beside those of the streams
  KernelDrops drops_;

  // In the order of their making, which the destructors turn round: sessions end before the sinks that they
  // call, sinks before the writer that they feed, and the writer before the pools whose frames it holds.
  std::shared_ptr<Library> library_;
  std::deque<FramePool> pools_;
  std::optional<FrameWriter> writer_;
  std::deque<StreamSink> sinks_;
  std::deque<CameraSession> sessions_;
  std::vector<Login> logins_;
  std::vector<Told> told_;
  Looks looks_;
};

}  // namespace kolvex_host
