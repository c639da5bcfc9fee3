#include "TextTable.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kolvex_host {

namespace {

/// Characters of a UTF-8 text as a terminal counts them, wide and combining ones aside.
std::size_t Length(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::string Padded(const std::string& text, std::size_t width, bool right) {
  const std::string blanks(width - Length(text), ' ');
  return right ? blanks + text : text + blanks;
}

}  // namespace

std::string TextTable::Text() const {
  std::vector<std::string> titles;
  std::vector<std::size_t> widths;
  std::vector<std::string> rules;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t width = Length(columns_[i].title);
    for (const auto& row : rows_) {
      width = std::max(width, Length(row[i]));
    }
    titles.push_back(columns_[i].title);
    widths.push_back(width);
    rules.emplace_back(width, '-');
  }

  std::string text;
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string out;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      out += (i == 0 ? "" : "  ") + Padded(cells[i], widths[i], columns_[i].right);
    }
    out.erase(out.find_last_not_of(' ') + 1);
    text += out + '\n';
  };
  line(titles);
  line(rules);
  for (const auto& row : rows_) {
    line(row);
  }
  return text;
}

std::string Fixed(double number, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, number);
  return text.data();
}

}  // namespace kolvex_host
