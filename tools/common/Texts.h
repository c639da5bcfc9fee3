#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Texts, numbers and tables of all tools. Any thread.
namespace kolvex_tools {

/// The whole text as a number within the bounds, or nothing.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t minimum, std::uint64_t maximum);
std::optional<double> ParseReal(std::string_view text, double minimum, double maximum);

/// A time like 500ms, 1.5s, 10m or 2h; a number alone counts seconds. Nothing when it isn't one, or not within
/// the bounds.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text, std::chrono::milliseconds least,
                                                       std::chrono::milliseconds most);
/// A time in the unit that fits it: "500ms", "90s", "10m".
std::string DurationText(std::chrono::milliseconds time);

std::vector<std::string_view> Split(std::string_view text, char separator);

/// The characters of a UTF-8 text; a byte that is no UTF-8 is one of them.
std::vector<std::string_view> Characters(std::string_view utf8);
std::vector<std::string_view> Characters(std::string&& utf8) = delete;  // they would outlive it

/// Columns that a text takes on a terminal: wide characters take two, combining ones none.
std::size_t DisplayWidth(std::string_view utf8);
/// A text of characters that can be printed, none beyond @p width columns; the cut shows as an ellipsis.
/// Control characters and bytes that are no UTF-8 show as "?".
std::string Shown(std::string_view utf8, std::size_t width = SIZE_MAX);

/// A name without blanks at its ends, and with a plain blank in the place of each space of another kind: names that look
/// alike are alike.
std::string Tidy(std::string_view utf8);

/// True when nothing of a text is to be seen: it has only spaces and characters without width.
bool IsBlank(std::string_view utf8);

/// Columns of the terminal that standard output goes to, 80 at least; no limit where it goes to a pipe or a file.
std::size_t OutputWidth();

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
  /// Title line, rule and rows, each ended by a line feed. A table that is wider than @p width comes in several
  /// blocks below each other, each with the first column; texts of more than half of the width are cut.
  std::string Text(std::size_t width = SIZE_MAX) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace kolvex_tools
