#pragma once

#include <nlohmann/json.hpp>

namespace kolvex_bench {

/// Prints the results as a Markdown table with a row for each receiver: what it costs, and what arrives.
void PrintTable(const nlohmann::json& rows);

}  // namespace kolvex_bench
