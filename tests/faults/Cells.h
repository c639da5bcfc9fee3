#pragma once

#include <string>
#include <vector>

#include "faults/Scene.h"

namespace kolvex_test {

/// One way to go wrong at one place of one step.
struct Cell {
  std::string table{}, step{};
  std::string where{};         ///< in the reply; empty where that makes no difference
  std::string column{};        ///< the way
  std::string camera{};        ///< properties
  std::string fault{}, end{};  ///< control commands
  Part part = nullptr;
  Outcome outcome{};
};

/// All cells in the order of the page, row by row.
std::vector<Cell> AllCells();

/// A line of the page with the cells that it tells of; none for text between the rows.
struct Row {
  std::string text;
  std::vector<Cell*> cells;
};

/// The tables. Rows of a step that tell the same are one.
std::vector<Row> Render(std::vector<Cell>& cells);

}  // namespace kolvex_test
