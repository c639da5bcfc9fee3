#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "CameraConfig.h"
#include "FrameInspector.h"
#include "StreamStatistics.h"

namespace kolvex_host {

/// All that one stream has brought.
struct StreamReport {
  CameraConfig camera;
  StreamCounts counts;
  PictureCounts pictures;
  sarnevo::u64 refused = 0;  ///< frames that the library got no memory for, because the writer was behind
  SteadyTime start{};        ///< of the run
};

/// The table for people, one line per stream.
std::string ReportTable(const std::vector<StreamReport>& streams);

/// The same for programs: one object per stream. "lost" and "doubled" are null where the pictures carry no
/// frame counter. docs/kolvex-host.md lists the members.
nlohmann::json ReportJson(const StreamReport& stream);

}  // namespace kolvex_host
