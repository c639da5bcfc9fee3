#include "xml/XmlPath.h"

namespace sarnevo::xml {

namespace {

// Takes a condition off the front of @p rest.
std::optional<XmlStep::Condition> TakeCondition(std::string_view& rest) {
  const std::size_t equals = rest.find('=');
  if (!rest.starts_with("[@") || equals >= rest.size() - 1) {
    return std::nullopt;
  }
  const char quote = rest[equals + 1];
  const std::size_t begin = equals + 2;
  const std::size_t end = rest.find(quote, begin);
  if ((quote != '"' && quote != '\'') || end == rest.npos || !rest.substr(end + 1).starts_with(']')) {
    return std::nullopt;
  }
  const XmlStep::Condition condition{rest.substr(2, equals - 2), rest.substr(begin, end - begin)};
  rest.remove_prefix(end + 2);
  return condition;
}

}  // namespace

std::optional<XmlStep> TakeXmlStep(std::string_view& path) {
  XmlStep step;
  step.name = path.substr(0, path.find_first_of("[/"));
  path.remove_prefix(step.name.size());
  while (path.starts_with('[')) {
    const auto condition = TakeCondition(path);
    if (!condition) {
      return std::nullopt;
    }
    step.conditions.push_back(*condition);
  }
  const bool goesOn = path.starts_with('/');
  path.remove_prefix(goesOn ? 1 : 0);
  return !step.name.empty() && goesOn != path.empty() ? std::optional(step) : std::nullopt;
}

}  // namespace sarnevo::xml
