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

/// Takes the first step, and the "/" after it, off the front of a path like A/B[@id="7"]. Nothing when no step is there,
/// or something else than another one is after it.
std::optional<XmlStep> TakeXmlStep(std::string_view& path);

}  // namespace sarnevo::xml
