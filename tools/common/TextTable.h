#pragma once

#include <string>
#include <vector>

namespace kolvex_host {

/// A table of text for people: columns as wide as their widest cell, numbers to the right.
class TextTable {
 public:
  struct Column {
    std::string title;
    bool right = false;  ///< numbers
  };

  explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}
  /// One cell per column.
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  /// Title line, rule and rows, each ended by a line feed.
  std::string Text() const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

/// A number with so many digits behind the point.
std::string Fixed(double number, int digits);

}  // namespace kolvex_host
