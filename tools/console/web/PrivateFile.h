#pragma once

#include <filesystem>
#include <string_view>

namespace kolvex_console {

/// Writes a file whole or not at all, readable by its owner alone: beside it, flushed, then renamed. Throws
/// Failure (ExitCode::Output) with file and reason; the old file is then as it was.
void WritePrivateFile(const std::filesystem::path& path, std::string_view content);

/// Makes a folder of its owner's alone, or one that is there so. Throws Failure (ExitCode::Output).
void MakePrivateFolder(const std::filesystem::path& folder);

/// Throws Failure (ExitCode::Usage) when there is no such file, or when others than its owner may open it.
void RefuseSharedFile(const std::filesystem::path& path);

}  // namespace kolvex_console
