#include "xml/XmlPath.h"

namespace sarnevo::xml {

namespace {

// Takes the text up to @p end, and @p end itself, off the front of @p rest.
std::optional<std::string_view> TakeUpTo(std::string_view& rest, std::string_view end) {
  const std::size_t place = rest.find(end);
  if (place == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view taken = rest.substr(0, place);
  rest.remove_prefix(place + end.size());
  return taken;
}

std::optional<XmlStep::Condition> TakeCondition(std::string_view& rest) {
  if (!rest.starts_with("[@")) {
    return std::nullopt;
  }
  rest.remove_prefix(2);
  const auto attribute = TakeUpTo(rest, "=");
  if (!attribute || rest.empty() || (rest.front() != '"' && rest.front() != '\'')) {
    return std::nullopt;
  }
  const std::string_view quote = rest.substr(0, 1);
  rest.remove_prefix(1);
  const auto value = TakeUpTo(rest, quote);
  if (!value || !rest.starts_with(']')) {
    return std::nullopt;
  }
  rest.remove_prefix(1);
  return XmlStep::Condition{*attribute, *value};
}

}  // namespace

std::optional<std::vector<XmlStep>> ParseXmlPath(std::string_view path) {
  if (path.starts_with('/')) {
    path.remove_prefix(1);
  }
  std::vector<XmlStep> steps;
  for (;;) {
    XmlStep& step = steps.emplace_back();
    step.name = path.substr(0, path.find_first_of("[/"));
    path.remove_prefix(step.name.size());
    if (step.name.empty()) {
      return std::nullopt;
    }
    while (path.starts_with('[')) {
      auto condition = TakeCondition(path);
      if (!condition) {
        return std::nullopt;
      }
      step.conditions.push_back(*condition);
    }
    if (path.empty()) {
      return steps;
    }
    if (path.front() != '/') {
      return std::nullopt;
    }
    path.remove_prefix(1);
  }
}

}  // namespace sarnevo::xml
