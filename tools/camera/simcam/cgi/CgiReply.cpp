#include "simcam/cgi/CgiReply.h"

#include <algorithm>
#include <ctime>

namespace simcam {

namespace {

std::tm Now() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  return utc;
}

}  // namespace

Pairs& Pairs::Add(std::string key, std::string value) {
  items_.emplace_back(std::move(key), std::move(value));
  return *this;
}

void Pairs::Distort(PinStyle style) {
  switch (style) {
    case PinStyle::Normal:
      break;
    case PinStyle::Reversed:
      std::reverse(items_.begin(), items_.end());
      break;
    case PinStyle::Doubled: {
      const auto once = items_;
      items_.insert(items_.end(), once.begin(), once.end());
      break;
    }
    case PinStyle::Upper:
      for (auto& [key, value] : items_) key = ToUpper(key);
      break;
    case PinStyle::Missing:
      if (!items_.empty()) items_.pop_back();
      break;
  }
}

std::string Pairs::ToText(Group group, ReplyShape shape) const {
  // Group 1 separates by ampersands even within its markup.
  const std::string_view separator = shape == ReplyShape::Ampersand ? "&"
                                     : shape == ReplyShape::Lines   ? "\r\n"
                                     : group == Group::One          ? "&<br>\r\n"
                                                                    : "<br>\r\n";
  std::string text = shape == ReplyShape::Markup ? "<html><body>\r\n" : "";
  for (const auto& [key, value] : items_) {
    text += key + "=" + value;
    if (shape != ReplyShape::Ampersand || &key != &items_.back().first) {
      text += separator;
    }
  }
  text += shape == ReplyShape::Markup ? "</body></html>\r\n" : shape == ReplyShape::Ampersand ? "\r\n" : "";
  return text;
}

std::string TimeOfDay() {
  const std::tm now = Now();
  return Format("%02d:%02d:%02d", now.tm_hour, now.tm_min, now.tm_sec);
}

std::string Date() {
  const std::tm now = Now();
  return Format("%04d/%02d/%02d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
}

}  // namespace simcam
