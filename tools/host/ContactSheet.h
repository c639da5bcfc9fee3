#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "PictureCodec.h"

namespace kolvex_host {

/// One stream on the contact sheet.
struct SheetEntry {
  std::string title;
  std::vector<std::string> lines;  ///< beneath the title
  Picture picture;                 ///< an empty one shows as a dark field that says so
};

/// Draws all streams side by side into one PNG file. Throws Failure (ExitCode::Output).
void WriteContactSheet(const std::filesystem::path& path, const std::vector<SheetEntry>& entries);

}  // namespace kolvex_host
