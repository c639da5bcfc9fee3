#include "CaptureRun.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "ContactSheet.h"
#include "Failure.h"
#include "Output.h"
#include "Text.h"

namespace kolvex_host {

using nlohmann::json;

namespace {

constexpr std::chrono::milliseconds kTick{200};
constexpr Seconds kJsonProgressPause{1};
constexpr Seconds kDropsPause{1};
/// Streams that are stopped at the same time: each waits for its camera, hundreds in turn would take minutes.
constexpr std::size_t kStopThreads = 32;

json ProgressJson(Seconds elapsed, const std::vector<StreamReport>& reports) {
  json streams = json::array();
  for (const StreamReport& report : reports) {
    streams.push_back({{"camera", report.camera.name},
                       {"frames", report.counts.frames},
                       {"fps", report.counts.FramesPerSecond()},
                       {"kBps", report.counts.KilobytesPerSecond()}});
  }
  return {{"event", "progress"}, {"seconds", elapsed.count()}, {"streams", std::move(streams)}};
}

SheetEntry MakeSheetEntry(const StreamReport& report, Picture picture) {
  const CameraConfig& camera = report.camera;
  const std::string size = std::to_string(report.counts.width) + "x" + std::to_string(report.counts.height);
  std::string port = camera.port == 80 ? "" : ":" + std::to_string(camera.port);
  const auto tenths = static_cast<int>(report.counts.FramesPerSecond() * 10 + 0.5);
  return {camera.name,
          {camera.address + port + "   group " + camera.Group() + "   " + camera.CodecName() +
           (report.counts.frames == 0 ? std::string()
                                      : "   " + size + "   " + std::to_string(tenths / 10) + "." +
                                            std::to_string(tenths % 10) + " fps")},
          std::move(picture)};
}

}  // namespace

CaptureRun::CaptureRun(const Common& common, const CaptureOptions& options)
    : common_(common), options_(options), start_(std::chrono::steady_clock::now()) {}

void CaptureRun::Run() {
  Prepare();
  OpenAndStart();
  const char* const reason = WaitForEnd();
  drops_.Look();
  StopAll();

  std::exception_ptr failure;
  try {
    writer_->Finish();
  } catch (const Failure&) {
    failure = std::current_exception();
  }
  const auto reports = Reports();
  Tell(reports, reason);
  if (failure) {
    std::rethrow_exception(failure);
  }
  if (options_.out) {
    WriteResults(reports);
  }
  std::string silent;
  for (const StreamReport& report : reports) {
    if (report.counts.frames == 0) {
      silent += (silent.empty() ? "" : ", ") + report.camera.name;
    }
  }
  if (!silent.empty()) {
    throw Failure(ExitCode::NoFrames, "No frame came from " + silent + ".");
  }
}

void CaptureRun::Prepare() {
  if (options_.out) {
    PrepareOutputFolder(*options_.out);
  }
  if (options_.tilesFrom) {
    tileRequests_.emplace(*options_.tilesFrom);
  }
  library_ = common_.LoadLibrary();

  std::vector<FrameWriter::StreamOptions> streams;
  for (const CameraConfig& camera : options_.cameras) {
    FrameWriter::StreamOptions stream{camera.codec, std::nullopt, options_.keep, options_.inspect};
    if (options_.out) {
      stream.folder = *options_.out / StreamFolderName(streams.size(), camera.name);
    }
    streams.push_back(std::move(stream));
    pools_.emplace_back(options_.framesPerStream);
  }
  writer_.emplace(streams, start_);
}

void CaptureRun::OpenAndStart() {
  const DriverSession::Log log = common_.MakeLog();
  for (std::size_t i = 0; i < options_.cameras.size(); ++i) {
    const CameraConfig& camera = options_.cameras[i];
    sinks_.emplace_back(*writer_, i, camera.frameInterval, options_.frames);
    sessions_.emplace_back(*library_, camera, common_.LoginFor(camera), sinks_[i], pools_[i], log);
  }
  // All are open before the first one starts: what is refused is refused before any camera is troubled.
  for (CameraSession& session : sessions_) {
    session.Start();
  }
}

const char* CaptureRun::WaitForEnd() {
  Progress progress(common_.json ? Progress::Mode::Silent : options_.progress);
  Seconds nextJson{0};
  Seconds nextLook{0};
  for (;;) {
    const Seconds elapsed = std::chrono::steady_clock::now() - start_;
    const auto reports = Reports();
    progress.Show(elapsed, reports);
    AddTiles(elapsed);
    if (common_.json && elapsed >= nextJson) {
      PrintJson(ProgressJson(elapsed, reports));
      nextJson = elapsed + kJsonProgressPause;
    }
    if (elapsed >= nextLook) {
      drops_.Look();
      nextLook = elapsed + kDropsPause;
    }
    if (writer_->HasFailed()) {
      return "output";
    }
    if (AllComplete()) {
      return "frames";
    }
    Seconds left = kTick;
    if (options_.duration.count() != 0) {
      left = std::min(left, options_.duration - elapsed);
      if (left.count() <= 0) {
        return "duration";
      }
    }
    if (common_.stop.Wait(std::chrono::duration_cast<std::chrono::milliseconds>(left))) {
      return "signal";
    }
  }
}

void CaptureRun::AddTiles(Seconds elapsed) {
  if (!tileRequests_) {
    return;
  }
  for (const TileRequest& request : tileRequests_->Take()) {
    const auto camera =
        std::find_if(options_.cameras.begin(), options_.cameras.end(),
                     [&request](const CameraConfig& candidate) { return candidate.name == request.camera; });
    if (camera == options_.cameras.end()) {
      std::fprintf(stderr, "kolvex-host: there is no camera \"%s\" for a tile.\n", request.camera.c_str());
      continue;
    }
    tiles_.push_back({request.text.empty() ? request.camera : request.camera + ": " + request.text,
                      {fmt::format("{:.1f} s after the start", elapsed.count())},
                      writer_->LatestPicture(static_cast<std::size_t>(camera - options_.cameras.begin()))});
  }
}

void CaptureRun::StopAll() {
  if (!common_.json && options_.progress != Progress::Mode::Silent) {
    std::fputs("Ending the streams; Ctrl-C ends at once.\n", stderr);
  }
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  while (threads.size() < std::min(kStopThreads, sessions_.size())) {
    threads.emplace_back([&] {
      for (std::size_t i = next++; i < sessions_.size(); i = next++) {
        sessions_[i].Stop();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  sessions_.clear();
}

bool CaptureRun::AllComplete() const {
  return std::all_of(sinks_.begin(), sinks_.end(), [](const StreamSink& sink) { return sink.IsComplete(); });
}

std::vector<StreamReport> CaptureRun::Reports() const {
  std::vector<StreamReport> reports;
  for (std::size_t i = 0; i < sinks_.size(); ++i) {
    reports.push_back(
        {options_.cameras[i], sinks_[i].Counts(), writer_->Counts(i), pools_[i].Refused(), start_});
  }
  return reports;
}

void CaptureRun::Tell(const std::vector<StreamReport>& reports, const char* reason) const {
  if (!common_.json) {
    Print(ReportTable(reports));
    if (const sarnevo::u64 drops = drops_.Total().value_or(0); drops != 0) {
      Print("The kernel threw " + std::to_string(drops) +
            " packets of all streams together away, because this machine was too slow to take them.\n");
    }
    return;
  }
  for (const StreamReport& report : reports) {
    json line = ReportJson(report);
    line["event"] = "stream";
    PrintJson(line);
  }
  const Seconds elapsed = std::chrono::steady_clock::now() - start_;
  const auto drops = drops_.Total();
  PrintJson({{"event", "end"},
             {"reason", reason},
             {"seconds", elapsed.count()},
             {"droppedByKernel", drops ? json(*drops) : json()}});
}

void CaptureRun::WriteResults(const std::vector<StreamReport>& reports) const {
  json list = json::array();
  std::vector<SheetEntry> sheet;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    list.push_back(ReportJson(reports[i]));
    sheet.push_back(MakeSheetEntry(reports[i], writer_->LatestPicture(i)));
  }
  sheet.insert(sheet.end(), tiles_.begin(), tiles_.end());
  WriteContactSheet(*options_.out / "contact-sheet.png", sheet);
  OutputFile::WriteWhole(*options_.out / "report.txt", ReportTable(reports));
  OutputFile::WriteWhole(*options_.out / "report.json", list.dump(2) + "\n");
}

}  // namespace kolvex_host
