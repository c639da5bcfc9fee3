#include "hub/Metrics.h"

#include <functional>

#include "kolvex/Version.h"

namespace kolvex_console {

namespace {

struct CameraLine {
  const char* name;
  const char* type;
  const char* help;
  std::function<std::optional<double>(const CameraCounts&, const Camera&)> value;
};

const CameraLine kLines[] = {
    {"kolvex_frames_total", "counter", "Frames that the driver delivered.",
     [](const auto& counts, const auto&) { return static_cast<double>(counts.frames); }},
    {"kolvex_frame_bytes_total", "counter", "Bytes of these frames.",
     [](const auto& counts, const auto&) { return static_cast<double>(counts.bytes); }},
    {"kolvex_gaps_total", "counter", "Frames later than 2.5 frame intervals after the one before.",
     [](const auto& counts, const auto&) { return static_cast<double>(counts.gaps); }},
    {"kolvex_restarts_total", "counter",
     "Times that frames came again after the driver had reported that none came.",
     [](const auto& counts, const auto&) { return static_cast<double>(counts.restarts); }},
    {"kolvex_no_data_total", "counter", "Reports of the driver that no frames came.",
     [](const auto& counts, const auto&) { return static_cast<double>(counts.noData); }},
    {"kolvex_last_frame_age_seconds", "gauge", "Time since the last frame; missing before the first.",
     [](const auto& counts, const auto&) { return counts.lastFrameAge; }},
    {"kolvex_viewers", "gauge", "Streams that show this camera.",
     [](const auto&, const auto& camera) { return static_cast<double>(camera.Video()->Viewers()); }},
};

/// A label's value: backslash, quote and line feed are escaped.
std::string Label(const std::string& text) {
  std::string label;
  for (const char character : text) {
    if (character == '\\' || character == '"') {
      label += '\\';
    }
    label += character == '\n' ? std::string("\\n") : std::string(1, character);
  }
  return label;
}

std::string Number(double value) {
  const auto whole = static_cast<std::int64_t>(value);
  return static_cast<double>(whole) == value ? std::to_string(whole) : std::to_string(value);
}

void Head(std::string& text, const char* name, const char* type, const char* help) {
  text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

}  // namespace

std::string MetricsText(const Site& site, std::size_t streams, std::optional<std::uint64_t> kernelDrops) {
  struct Row {
    std::string label;
    std::shared_ptr<Camera> camera;
    CameraCounts counts;
  };
  std::vector<Row> rows;
  for (const auto& [name, camera] : site.Cameras()) {
    rows.push_back({"camera=\"" + Label(name) + "\"", camera, camera->Counts()});
  }
  std::string text;
  Head(text, "kolvex_build_info", "gauge", "Always 1; the version is a label.");
  text += "kolvex_build_info{version=\"" KOLVEX_VERSION_STRING "\"} 1\n";
  for (const CameraLine& line : kLines) {
    Head(text, line.name, line.type, line.help);
    for (const Row& row : rows) {
      if (const auto value = line.value(row.counts, *row.camera)) {
        text += std::string(line.name) + "{" + row.label + "} " + Number(*value) + "\n";
      }
    }
  }
  Head(text, "kolvex_input_changes_total", "counter", "Changes of a digital input.");
  for (const Row& row : rows) {
    for (const auto& [input, changes] : row.counts.inputChanges) {
      text += "kolvex_input_changes_total{" + row.label + ",input=\"" + std::to_string(input) + "\"} " +
              std::to_string(changes) + "\n";
    }
  }
  Head(text, "kolvex_streams", "gauge", "Streams that are open, of all kinds.");
  text += "kolvex_streams " + std::to_string(streams) + "\n";
  if (kernelDrops) {
    Head(text, "kolvex_kernel_drops_total", "counter",
         "Datagrams of all cameras that the kernel dropped since a receive buffer was full.");
    text += "kolvex_kernel_drops_total " + std::to_string(*kernelDrops) + "\n";
  }
  return text;
}

}  // namespace kolvex_console
