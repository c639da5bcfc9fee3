#include "Report.h"

#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Texts.h"

namespace kolvex_host {

using kolvex_tools::TextTable;
using nlohmann::json;

namespace {

constexpr double kMillisecondsPerSecond = 1000;
constexpr std::size_t kListedOutages = 5;  // for people; programs get all

std::string Size(sarnevo::u32 width, sarnevo::u32 height) { return fmt::format("{}x{}", width, height); }

/// Seconds from the start of the run to a moment.
double Since(const StreamReport& stream, SteadyTime time) { return Seconds(time - stream.start).count(); }

/// A number that only pictures with a frame counter give.
std::string Counted(const PictureCounts& pictures, sarnevo::u64 number) {
  return pictures.counted == 0 ? "-" : std::to_string(number);
}

std::string OutagesText(const StreamReport& stream) {
  const StreamCounts& counts = stream.counts;
  if (counts.outages.empty()) {
    return {};
  }
  std::string text = fmt::format("{} brought nothing", stream.camera.name);
  for (std::size_t i = 0; i < counts.outages.size() && i < kListedOutages; ++i) {
    text += fmt::format("{} for {:.1f} s at {:.1f} s", i == 0 ? "" : ",", counts.outages[i].length.count(),
                        Since(stream, counts.outages[i].start));
  }
  return text + (counts.outages.size() > kListedOutages
                     ? fmt::format(", and {} times more.\n", counts.outages.size() - kListedOutages)
                     : ".\n");
}

std::string NotesOf(const StreamReport& stream) {
  std::string notes;
  if (stream.counts.frames == 0) {
    notes += fmt::format("{} sent no frame.\n", stream.camera.name);
  } else if (!stream.HasPictures()) {
    notes += fmt::format("{} sent no picture that can be decoded.\n", stream.camera.name);
  }
  notes += OutagesText(stream);
  for (const std::string& warning : Warnings(stream)) {
    notes += warning + "\n";
  }
  if (stream.reason && stream.HasPictures()) {
    notes += fmt::format("{}: {}\n", stream.camera.name, stream.reason->Sentence());
  }
  if (stream.refused != 0) {
    notes += fmt::format("{} lost {} frames here, because writing and decoding were too slow.\n",
                         stream.camera.name, stream.refused);
  }
  return notes;
}

}  // namespace

std::vector<std::string> Warnings(const StreamReport& stream) {
  std::vector<std::string> warnings;
  const StreamCounts& counts = stream.counts;
  const CameraConfig& camera = stream.camera;
  const bool wrongLogin = stream.reason && stream.reason->exit == ExitCode::Login;
  if (!stream.HasPictures() || wrongLogin) {
    return warnings;  // one reason is enough
  }
  if (counts.width != camera.width || counts.height != camera.height) {
    warnings.push_back(fmt::format("{} sends {}, not {} as asked: it may not have this size.", camera.name,
                                   Size(counts.width, counts.height), Size(camera.width, camera.height)));
  }
  // A short or disturbed stream shows no pace.
  constexpr double kLeastSeconds = 2;
  constexpr double kTolerance = 0.15;
  const double wanted = camera.frameInterval == 0 ? 0 : kMillisecondsPerSecond / camera.frameInterval;
  const double got = counts.FramesPerSecond();
  if (wanted != 0 && counts.RunningSeconds() >= kLeastSeconds && std::abs(got - wanted) > kTolerance * wanted &&
      stream.pictures.lost == 0 && stream.refused == 0) {
    warnings.push_back(
        fmt::format("{} sends {:.1f} frames per second, not {:.1f} as asked: it may not have this "
                    "rate, or be too slow for it.",
                    camera.name, got, wanted));
  }
  return warnings;
}

std::string ReportTable(const std::vector<StreamReport>& streams, std::size_t width) {
  TextTable table({{"camera"},
                   {"address"},
                   {"group", true},
                   {"codec"},
                   {"size", true},
                   {"frames", true},
                   {"key", true},
                   {"fps", true},
                   {"kB/s", true},
                   {"lost", true},
                   {"doubled", true},
                   {"damaged", true},
                   {"late", true},
                   {"no data", true},
                   {"first frame", true}});
  std::string notes;
  for (const StreamReport& stream : streams) {
    const StreamCounts& counts = stream.counts;
    const PictureCounts& pictures = stream.pictures;
    const bool any = counts.frames != 0;
    table.Add({stream.camera.name, stream.camera.address, stream.camera.Group(), stream.camera.CodecName(),
               any ? Size(counts.width, counts.height) : "-", std::to_string(counts.frames),
               std::to_string(counts.keyFrames), fmt::format("{:.1f}", counts.FramesPerSecond()),
               fmt::format("{:.1f}", counts.KilobytesPerSecond()), Counted(pictures, pictures.lost),
               Counted(pictures, pictures.doubled),
               pictures.decoded == 0 ? "-" : std::to_string(pictures.damaged), std::to_string(counts.gaps),
               std::to_string(counts.noData),
               any ? fmt::format("{:.2f} s", Since(stream, *counts.first)) : "-"});
    notes += NotesOf(stream);
  }
  return table.Text(width) + notes;
}

json ReportJson(const StreamReport& stream) {
  const StreamCounts& counts = stream.counts;
  const PictureCounts& pictures = stream.pictures;
  const bool any = counts.frames != 0;
  const bool counted = pictures.counted != 0;
  json outages = json::array();
  for (const Outage& outage : counts.outages) {
    outages.push_back({{"start", Since(stream, outage.start)}, {"seconds", outage.length.count()}});
  }
  return {
      {"camera", stream.camera.name},
      {"address", stream.camera.address},
      {"port", stream.camera.port},
      {"group", stream.camera.Group()},
      {"codec", stream.camera.CodecName()},
      {"width", counts.width},
      {"height", counts.height},
      {"frames", counts.frames},
      {"keyFrames", counts.keyFrames},
      {"bytes", counts.bytes},
      {"fps", counts.FramesPerSecond()},
      {"kBps", counts.KilobytesPerSecond()},
      {"decoded", pictures.decoded},
      {"damaged", pictures.damaged},
      {"counted", pictures.counted},
      {"lost", counted ? json(pictures.lost) : json()},
      {"doubled", counted ? json(pictures.doubled) : json()},
      {"gaps", counts.gaps},
      {"longestGapMs", any ? json(counts.longestGap.count() * kMillisecondsPerSecond) : json()},
      {"noData", counts.noData},
      {"outages", std::move(outages)},
      {"warnings", Warnings(stream)},
      {"reason", stream.reason ? json(stream.reason->Name()) : json()},
      {"message", stream.reason ? json(stream.reason->Sentence()) : json()},
      {"refused", stream.refused},
      {"firstFrameMs", any ? json(Since(stream, *counts.first) * kMillisecondsPerSecond) : json()},
  };
}

}  // namespace kolvex_host
