#include "Texts.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cwchar>

#include <fmt/format.h>

namespace kolvex_tools {

using std::chrono::milliseconds;

namespace {

template <typename Number>
std::optional<Number> ParseWhole(std::string_view text, Number minimum, Number maximum) {
  Number value{};
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, value);
  if (text.empty() || result.ec != std::errc{} || result.ptr != end ||
      !(value >= minimum && value <= maximum)) {
    return std::nullopt;
  }
  return value;
}

struct Unit {
  std::string_view name;
  double milliseconds;
};
constexpr auto kUnits = std::to_array<Unit>({{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}});

/// One character of a text, and the columns that it takes; none when it can't be printed or is no UTF-8.
struct Character {
  std::string_view bytes;
  std::optional<std::size_t> columns;
};

Character NextCharacter(std::string_view text) {
  // Whatever the person's language: names are UTF-8.
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(utf8);
  wchar_t wide = 0;
  std::mbstate_t state{};
  const std::size_t length = std::mbrtowc(&wide, text.data(), text.size(), &state);
  const bool isCharacter = length != 0 && length <= text.size();
  const int columns = isCharacter ? wcwidth(wide) : -1;
  uselocale(before);
  return {text.substr(0, isCharacter ? length : 1),
          columns < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(columns))};
}

/// Of Unicode's general categories Zs and Zl, and spaces without any width.
bool IsSpace(std::string_view character) {
  constexpr auto kSpaces = std::to_array<std::string_view>(
      {" ",      "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
       "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u200B", "\u2028",
       "\u2029", "\u202F", "\u205F", "\u2060", "\u3000", "\uFEFF"});
  return std::find(kSpaces.begin(), kSpaces.end(), character) != kSpaces.end();
}

std::string Padded(const std::string& text, std::size_t width, bool right) {
  const std::size_t own = DisplayWidth(text);
  const std::string blanks(width > own ? width - own : 0, ' ');
  return right ? blanks + text : text + blanks;
}

}  // namespace

std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t minimum, std::uint64_t maximum) {
  return ParseWhole<std::uint64_t>(text, minimum, maximum);
}

std::optional<double> ParseReal(std::string_view text, double minimum, double maximum) {
  return ParseWhole<double>(text, minimum, maximum);
}

std::optional<milliseconds> ParseDuration(std::string_view text, milliseconds least, milliseconds most) {
  double factor = 1000;
  const std::size_t unitAt = std::min(text.find_first_not_of("0123456789."), text.size());
  if (unitAt != text.size()) {
    const auto unit = std::find_if(kUnits.begin(), kUnits.end(),
                                   [&](const Unit& known) { return known.name == text.substr(unitAt); });
    if (unit == kUnits.end()) {
      return std::nullopt;
    }
    factor = unit->milliseconds;
  }
  const double limit = static_cast<double>(most.count());
  const auto number = ParseReal(text.substr(0, unitAt), 0, limit);
  if (!number || *number * factor < static_cast<double>(least.count()) || *number * factor > limit) {
    return std::nullopt;
  }
  return milliseconds(std::llround(*number * factor));
}

std::string DurationText(milliseconds time) {
  const Unit* best = kUnits.data();
  for (const Unit& unit : kUnits) {
    if (time.count() != 0 && time.count() % static_cast<long>(unit.milliseconds) == 0) {
      best = &unit;
    }
  }
  return fmt::format("{}{}", time.count() / static_cast<long>(best->milliseconds), best->name);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(at + 1);
  }
}

std::vector<std::string_view> Characters(std::string_view utf8) {
  std::vector<std::string_view> characters;
  while (!utf8.empty()) {
    characters.push_back(NextCharacter(utf8).bytes);
    utf8.remove_prefix(characters.back().size());
  }
  return characters;
}

std::size_t DisplayWidth(std::string_view utf8) {
  std::size_t width = 0;
  while (!utf8.empty()) {
    const Character next = NextCharacter(utf8);
    width += next.columns.value_or(1);
    utf8.remove_prefix(next.bytes.size());
  }
  return width;
}

std::string Shown(std::string_view utf8, std::size_t width) {
  const bool fits = width == SIZE_MAX || DisplayWidth(utf8) <= width;
  std::size_t left = fits ? SIZE_MAX : width - 1;
  std::string text;
  while (!utf8.empty()) {
    const Character next = NextCharacter(utf8);
    const std::size_t columns = next.columns.value_or(1);
    if (columns > left) {
      break;
    }
    left -= columns;
    text += next.columns ? next.bytes : "?";
    utf8.remove_prefix(next.bytes.size());
  }
  return fits ? text : text + "…";
}

std::string Tidy(std::string_view utf8) {
  std::string text;
  for (const std::string_view bytes : Characters(utf8)) {
    text += IsSpace(bytes) ? " " : bytes;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  text.erase(0, text.find_first_not_of(' '));
  return text;
}

bool IsBlank(std::string_view utf8) {
  static constexpr std::string_view kSoftHyphen = "\u00AD";  // seen at the end of a line only
  const auto characters = Characters(utf8);
  return std::all_of(characters.begin(), characters.end(), [](std::string_view bytes) {
    return IsSpace(bytes) || bytes == kSoftHyphen || NextCharacter(bytes).columns == 0;
  });
}

std::size_t OutputWidth() {
  constexpr std::size_t kLeast = 80;
  winsize size{};
  if (isatty(STDOUT_FILENO) == 0) {
    return SIZE_MAX;
  }
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? std::max<std::size_t>(size.ws_col, kLeast) : kLeast;
}

std::string TextTable::Text(std::size_t width) const {
  const std::size_t widest = width == SIZE_MAX ? SIZE_MAX : width / 2;
  std::vector<std::vector<std::string>> cells(columns_.size());
  std::vector<std::size_t> widths(columns_.size());
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    cells[i].push_back(columns_[i].title);
    cells[i].emplace_back();
    for (const auto& row : rows_) {
      cells[i].push_back(Shown(row[i], widest));
    }
    for (const std::string& cell : cells[i]) {
      widths[i] = std::max(widths[i], DisplayWidth(cell));
    }
    cells[i][1] = std::string(widths[i], '-');
  }

  constexpr std::size_t kGap = 2;
  std::string text;
  for (std::size_t next = std::min<std::size_t>(1, columns_.size()); !columns_.empty();) {
    std::vector<std::size_t> block{0};
    std::size_t used = widths[0];
    while (next < columns_.size() &&
           (block.size() == 1 || width == SIZE_MAX || used + kGap + widths[next] <= width)) {
      used += kGap + widths[next];
      block.push_back(next++);
    }
    for (std::size_t line = 0; line < cells[0].size(); ++line) {
      std::string out;
      for (const std::size_t column : block) {
        out += (out.empty() ? "" : "  ") + Padded(cells[column][line], widths[column], columns_[column].right);
      }
      out.erase(out.find_last_not_of(' ') + 1);
      text += out + '\n';
    }
    if (next >= columns_.size()) {
      break;
    }
    text += '\n';
  }
  return text;
}

}  // namespace kolvex_tools
