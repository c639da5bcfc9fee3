#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "e2e/Lineup.h"

namespace kolvex_bench {

struct Effort {
  int rounds = 9;              ///< turns of each receiver that count
  double windowSeconds = 0.5;  ///< length of one turn
};

/// One row of the table for each receiver, and one for the library up to the whole frame, without the host's copy.
/// Each turn is set against the bare receiver's turn of the same round. Throws std::runtime_error when a
/// receiver ends or gets nothing.
nlohmann::json Compare(const Plan& plan, const Effort& effort, Board& board, const std::vector<Who>& who);

}  // namespace kolvex_bench
