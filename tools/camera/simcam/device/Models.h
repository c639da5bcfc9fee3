#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "simcam/head/HeadProtocol.h"

namespace simcam {

/// The two firmware lines, which speak different CGI vocabularies.
enum class Group : std::uint8_t { One = 1, Two = 2 };

struct Model {
  std::string_view name;
  Group group;
  unsigned typeNumber;  ///< what a group 2 camera answers as its "CameraType"; 0 in group 1
  unsigned inputs, outputs;
  bool audio;
  HeadProtocol head;  ///< at the serial port, group 1
};

/// All models, those of group 1 first. The last one, P-499, has a type number that drivers don't know.
std::span<const Model> Models();

/// The name without its maker.
std::string_view ShortName(const Model& model);

/// The model of that name, without regard to case; null when there is none. "Kolvex " in front may be left
/// out.
const Model* FindModel(std::string_view name);

}  // namespace simcam
