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
#include "Texts.h"

namespace kolvex_host {

using nlohmann::json;

namespace {

constexpr std::chrono::milliseconds kTick{200};
constexpr Seconds kJsonProgressPause{1};
constexpr Seconds kDropsPause{1};
/// A stream usually begins 3.3 seconds after its start; with many of them the cameras are asked one after another.
constexpr Seconds kUsualStart{4.5};
constexpr Seconds kStartOfOneMore{0.1};
/// Frames for so long without a good one are none.
constexpr Seconds kTrial{1.5};
/// A stream that ran and has been silent for so long is looked into.
constexpr Seconds kSilence{10};
/// The same at the end, where no more frame can be waited for; slow streams get three intervals.
constexpr Seconds kSilenceAtEnd{2};
/// Streams that are stopped at the same time: each waits for its camera, hundreds in turn would take minutes.
constexpr std::size_t kStopThreads = 32;

json ProgressJson(Seconds elapsed, const std::vector<StreamReport>& reports) {
  json streams = json::array();
  for (const StreamReport& report : reports) {
    streams.push_back({{"camera", report.camera.name},
                       {"frames", report.counts.frames},
                       {"fps", report.counts.recentFrames},
                       {"kBps", report.counts.recentKilobytes}});
  }
  return {{"event", "progress"}, {"seconds", elapsed.count()}, {"streams", std::move(streams)}};
}

SheetEntry MakeSheetEntry(const StreamReport& report, Picture picture) {
  const CameraConfig& camera = report.camera;
  const std::string port = camera.port == 80 ? "" : fmt::format(":{}", camera.port);
  const std::string stream = report.counts.frames == 0
                                 ? std::string()
                                 : fmt::format("   {}x{}   {:.1f} fps", report.counts.width,
                                               report.counts.height, report.counts.FramesPerSecond());
  return {
      camera.name,
      {fmt::format("{}{}   group {}   {}{}", camera.address, port, camera.Group(), camera.CodecName(), stream)},
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
  for (StreamSink& sink : sinks_) {
    sink.End();
  }
  LookAtEnd();
  const std::optional<Failure> missing = MissingPictures(Reports());
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
  if (missing) {
    throw Failure(*missing);
  }
}

std::optional<Failure> CaptureRun::MissingPictures(const std::vector<StreamReport>& reports) const {
  std::string sentence;
  std::optional<ExitCode> code;
  for (const StreamReport& report : reports) {
    const bool wrongLogin = report.reason && report.reason->exit == ExitCode::Login;
    if (report.HasPictures() && !wrongLogin) {
      continue;
    }
    // Where no frame came at all that is the result, whatever the reason; but a script must see a wrong password.
    const bool asReason = report.reason && (report.counts.frames != 0 || wrongLogin);
    const ExitCode own = asReason ? report.reason->exit : ExitCode::NoFrames;
    // Many cameras with one trouble have its code; else it is only sure that frames are missing.
    code = !code || *code == own ? own : ExitCode::NoFrames;
    sentence += (sentence.empty() ? "" : " ") +
                (report.HasPictures() ? fmt::format("{} streams as it was set before. {}", report.camera.name,
                                                    report.reason->Sentence())
                 : report.reason
                     ? fmt::format("No picture came from {}. {}", report.camera.name, report.reason->Sentence())
                     : fmt::format("No frame came from {}.", report.camera.name));
  }
  return code ? std::optional(ToldNow(*code, sentence)) : std::nullopt;
}

void CaptureRun::Prepare() {
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
  if (options_.toOutput) {
    streams.front().toOutput = true;
  }
  writer_.emplace(streams, start_);
  told_.resize(options_.cameras.size());
}

void CaptureRun::OpenAndStart() {
  const DriverSession::Log log = common_.MakeLog();
  for (std::size_t i = 0; i < options_.cameras.size(); ++i) {
    const CameraConfig& camera = options_.cameras[i];
    logins_.push_back(common_.LoginFor(camera));
    sinks_.emplace_back(*writer_, i, camera.frameInterval, options_.frames, options_.duration);
    sessions_.emplace_back(*library_, camera, logins_[i], sinks_[i], pools_[i], log);
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
    LookIntoSilence(elapsed, reports);
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
    if (IsOver(reports)) {
      const bool any = std::any_of(reports.begin(), reports.end(),
                                   [](const StreamReport& report) { return report.HasPictures(); });
      return !any ? "failed" : options_.frames != 0 && options_.duration.count() == 0 ? "frames" : "duration";
    }
    // Only what the run goes on with: what ends it is said at the end.
    for (std::size_t i = 0; i < reports.size(); ++i) {
      if (const Reason* const reason = looks_.Result(i); reason && !told_[i].trouble) {
        TellTrouble(i, *reason, &progress);
      }
    }
    if (common_.stop.Wait(kTick)) {
      return "signal";
    }
  }
}

void CaptureRun::LookIntoSilence(Seconds elapsed, const std::vector<StreamReport>& reports) {
  const Seconds usual = kUsualStart + kStartOfOneMore * static_cast<double>(reports.size());
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const StreamCounts& counts = reports[i].counts;
    const SteadyTime now = std::chrono::steady_clock::now();
    const bool silent = counts.first && now - counts.last > kSilence;
    const bool wanting = !counts.first               ? elapsed > usual
                         : !reports[i].HasPictures() ? now - *counts.first > kTrial
                                                     : silent;
    if (wanting && !sinks_[i].IsComplete()) {
      BeginLook(i, reports[i]);
    } else if (!wanting && looks_.IsDone(i) && told_[i].trouble) {
      // It has come, or come back: a later trouble is a new one.
      looks_.Forget(i);
      told_[i].trouble = false;
      const std::string sentence = fmt::format("{}: pictures come.", options_.cameras[i].name);
      if (common_.json) {
        PrintJson({{"event", "recovered"}, {"camera", options_.cameras[i].name}, {"message", sentence}});
      } else if (options_.progress != Progress::Mode::Silent) {
        fmt::print(stderr, "kolvex-host: {}\n", sentence);
      }
    }
  }
  looks_.AreDone();  // starts those that had to wait
}

void CaptureRun::BeginLook(std::size_t stream, const StreamReport& report) {
  const Diagnosis diagnosis(options_.cameras[stream], logins_[stream]);
  if (!report.HasPictures()) {
    looks_.Begin(stream, [diagnosis, frames = report.counts.frames](std::stop_token stop) {
      return std::optional(diagnosis.WhyNoPicture({frames}, std::move(stop)));
    });
    return;
  }
  // It ran and ended: what would speak of its pictures is no reason.
  looks_.Begin(stream, [diagnosis](std::stop_token stop) {
    const Reason reason = diagnosis.WhyNoPicture({}, std::move(stop));
    return reason.cause == Reason::Cause::Unusable ? std::nullopt : std::optional(reason);
  });
}

bool CaptureRun::HasDied(std::size_t stream, const StreamCounts& counts) const {
  const SteadyTime now = std::chrono::steady_clock::now();
  if (!counts.first || (options_.frames != 0 && counts.frames >= options_.frames)) {
    return false;
  }
  // Frames after its time are passed over.
  const SteadyTime end =
      options_.duration.count() == 0
          ? now
          : std::min(now, *counts.first + std::chrono::duration_cast<SteadyTime::duration>(options_.duration));
  const Seconds interval{options_.cameras[stream].frameInterval / 1000.0};
  return end - counts.last > std::max(kSilenceAtEnd, 3 * interval);
}

void CaptureRun::LookAtEnd() {
  const auto reports = Reports();
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const bool warned = !Warnings(reports[i]).empty();
    if (!reports[i].HasPictures() || HasDied(i, reports[i].counts)) {
      BeginLook(i, reports[i]);
    } else if (warned || options_.cameras[i].Group() == "2") {
      // A camera of group 2 that refuses the login streams as it was set before, which may look like what was asked.
      looks_.Begin(i, [diagnosis = Diagnosis(options_.cameras[i], logins_[i]), warned](std::stop_token stop) {
        auto reason = diagnosis.WhyNoAnswer(std::move(stop));
        return warned || (reason && reason->exit == ExitCode::Login) ? reason : std::nullopt;
      });
    }
  }
  while (!looks_.AreDone()) {
    if (common_.stop.Wait(kTick, StopSignal::Second::Waits)) {
      return;
    }
  }
}

void CaptureRun::TellTrouble(std::size_t stream, const Reason& reason, Progress* progress) {
  told_[stream].trouble = true;
  const std::string& name = options_.cameras[stream].name;
  if (common_.json) {
    PrintJson(
        {{"event", "trouble"}, {"camera", name}, {"reason", reason.Name()}, {"message", reason.Sentence()}});
  } else if (options_.progress != Progress::Mode::Silent) {
    progress->Clear();
    fmt::print(stderr, "kolvex-host: {}: {}\n", name, reason.Sentence());
  }
}

/// A stream is over when it has brought what was asked for, or when it is known why it doesn't. Without a limit the
/// person decides about cameras that may come back; waiting cures no wrong password.
bool CaptureRun::IsOver(const std::vector<StreamReport>& reports) const {
  const bool limited = options_.duration.count() != 0 || options_.frames != 0;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const auto& reason = reports[i].reason;
    const bool failed = !reports[i].HasPictures() && reason && (limited || reason->IsLasting());
    if (!failed && !sinks_[i].IsComplete()) {
      return false;
    }
  }
  return true;
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

std::vector<StreamReport> CaptureRun::Reports() const {
  std::vector<StreamReport> reports;
  for (std::size_t i = 0; i < sinks_.size(); ++i) {
    const Reason* const reason = looks_.Result(i);
    reports.push_back({options_.cameras[i], sinks_[i].Counts(), writer_->Counts(i), pools_[i].Refused(), start_,
                       reason ? std::optional(*reason) : std::nullopt});
  }
  return reports;
}

void CaptureRun::Tell(const std::vector<StreamReport>& reports, const char* reason) const {
  const Seconds elapsed = std::chrono::steady_clock::now() - start_;
  const auto drops = drops_.Total();
  if (!common_.json) {
    std::string text = ReportTable(reports, options_.toOutput ? SIZE_MAX : kolvex_tools::OutputWidth());
    if (drops.value_or(0) != 0) {
      text += fmt::format(
          "The kernel threw away {} packets of all streams together, because this machine was too "
          "slow to take them.\n",
          *drops);
    }
    if (options_.toOutput) {
      std::fputs(text.c_str(), stderr);  // standard output has the stream
    } else {
      Print(text);
    }
    return;
  }
  for (const StreamReport& report : reports) {
    json line = ReportJson(report);
    line["event"] = "stream";
    PrintJson(line);
  }
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
  OutputFile::WriteWhole(*options_.out / "report.txt", ReportTable(reports, SIZE_MAX));
  OutputFile::WriteWhole(*options_.out / "report.json", JsonText(list, 2) + "\n");
}

}  // namespace kolvex_host
