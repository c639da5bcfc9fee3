#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace kolvex_host {

/// Writes text to standard output. Throws Failure (ExitCode::Output) when the reader has gone or the disk
/// behind it is full.
void Print(const std::string& text);

/// Writes one JSON line to standard output.
void PrintJson(const nlohmann::json& value);

}  // namespace kolvex_host
