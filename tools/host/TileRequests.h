#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kolvex_host {

/// A wish for one more tile on the contact sheet, with what a camera shows at this moment.
struct TileRequest {
  std::string camera;
  std::string text;
};

/// Takes such wishes while a capture runs: lines "CAMERA: TEXT" from a named pipe or standard input. Main
/// thread.
class TileRequests {
 public:
  /// @p path  a named pipe, or "-" for standard input. Throws Failure (ExitCode::Usage).
  explicit TileRequests(const std::filesystem::path& path);
  ~TileRequests();
  TileRequests(const TileRequests&) = delete;
  TileRequests& operator=(const TileRequests&) = delete;

  /// What has come since the last call; never blocks. A line without a colon is a camera without a text.
  std::vector<TileRequest> Take();

 private:
  int descriptor_;
  std::string rest_;  // the beginning of a line
};

}  // namespace kolvex_host
