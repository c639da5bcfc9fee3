#pragma once

#include <nlohmann/json.hpp>

namespace kolvex_bench {

/// Prints the results as two Markdown tables with a row for each receiver: what it costs, and what arrives.
void PrintTables(const nlohmann::json& rows);

}  // namespace kolvex_bench
