#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace sarnevo::xml {

/// One step of a path: the name of an element and what its attributes must be. The texts lie in the path.
struct XmlStep {
  struct Condition {
    std::string_view attribute;
    std::string_view value;
  };
  std::string_view name;
  std::vector<Condition> conditions;
};

/// Takes a path like A/B[@id="7"] apart; a "/" in front is the document. Nothing when it isn't of that form.
std::optional<std::vector<XmlStep>> ParseXmlPath(std::string_view path);

}  // namespace sarnevo::xml
