#pragma once

#include <nlohmann/json.hpp>

namespace kolvex_bench {

/// Prints one Markdown row for each receiver.
void PrintRows(const nlohmann::json& rows);
void PrintHead();

}  // namespace kolvex_bench
