#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "CameraConfig.h"
#include "Diagnosis.h"
#include "FrameInspector.h"
#include "StreamStatistics.h"

namespace kolvex_host {

/// All that one stream has brought.
struct StreamReport {
  CameraConfig camera;
  StreamCounts counts;
  PictureCounts pictures;
  sarnevo::u64 refused = 0;      ///< frames that the library got no memory for, because the writer was too slow
  SteadyTime start{};            ///< of the run
  std::optional<Reason> reason;  ///< what a look into the stream has shown

  /// At least one frame came and could be decoded, and most of the others, too.
  bool HasPictures() const { return pictures.HasGood() && 2 * pictures.damaged <= pictures.decoded; }
};

/// Sentences about what the camera didn't follow: another size, another pace.
std::vector<std::string> Warnings(const StreamReport& stream);

/// The table for people, one line per stream, and sentences on what is remarkable. Up to @p width columns wide.
std::string ReportTable(const std::vector<StreamReport>& streams, std::size_t width);

/// The same for programs: one object per stream. "lost" and "doubled" are null where the pictures carry no
/// frame counter. docs/kolvex-host.md lists the members.
nlohmann::json ReportJson(const StreamReport& stream);

}  // namespace kolvex_host
