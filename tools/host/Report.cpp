#include "Report.h"

#include <nlohmann/json.hpp>

#include "Text.h"

#include <fmt/format.h>

namespace kolvex_host {

using kolvex_tools::TextTable;

using nlohmann::json;

namespace {

constexpr double kMillisecondsPerSecond = 1000;

std::string Size(sarnevo::u32 width, sarnevo::u32 height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

/// Seconds from the start of the run to the first frame.
double FirstFrame(const StreamReport& stream) {
  return Seconds(stream.counts.first.value_or(stream.start) - stream.start).count();
}

/// A number that only pictures with a frame counter give.
std::string Counted(const PictureCounts& pictures, sarnevo::u64 number) {
  return pictures.counted == 0 ? "-" : std::to_string(number);
}

}  // namespace

std::string ReportTable(const std::vector<StreamReport>& streams) {
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
               std::to_string(counts.noData), any ? fmt::format("{:.2f}", FirstFrame(stream)) + " s" : "-"});
    if (!any) {
      notes += stream.camera.name + " sent no frame.\n";
    }
    if (stream.refused != 0) {
      notes += stream.camera.name + " lost " + std::to_string(stream.refused) +
               " frames here, because writing and decoding were too slow.\n";
    }
  }
  return table.Text() + notes;
}

json ReportJson(const StreamReport& stream) {
  const StreamCounts& counts = stream.counts;
  const PictureCounts& pictures = stream.pictures;
  const bool any = counts.frames != 0;
  const bool counted = pictures.counted != 0;
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
      {"refused", stream.refused},
      {"firstFrameMs", any ? json(FirstFrame(stream) * kMillisecondsPerSecond) : json()},
  };
}

}  // namespace kolvex_host
