#include "simcam/device/Models.h"

#include <array>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr std::string_view kMaker = "Kolvex ";

constexpr std::array kModels = {
    //     name              group     type in out  audio  head
    Model{"Kolvex P-400", Group::One, 0, 1, 1, false, HeadProtocol::None},
    Model{"Kolvex P-413", Group::One, 0, 1, 1, true, HeadProtocol::None},
    Model{"Kolvex P-423", Group::One, 0, 2, 1, true, HeadProtocol::ThreeByte},
    Model{"Kolvex P-426", Group::One, 0, 4, 2, true, HeadProtocol::PelcoD},
    Model{"Kolvex P-428", Group::One, 0, 4, 4, true, HeadProtocol::PelcoD},
    Model{"Kolvex P-463", Group::One, 0, 2, 2, false, HeadProtocol::ThreeByte},
    Model{"Kolvex P-463DW", Group::One, 0, 2, 2, true, HeadProtocol::ThreeByte},
    Model{"Kolvex P-1401", Group::One, 0, 0, 0, false, HeadProtocol::None},
    Model{"Kolvex P-405", Group::Two, 71, 0, 0, true, HeadProtocol::None},
    Model{"Kolvex P-405M", Group::Two, 68, 0, 0, true, HeadProtocol::None},
    Model{"Kolvex P-410", Group::Two, 81, 1, 1, true, HeadProtocol::None},
    Model{"Kolvex P-412", Group::Two, 67, 1, 1, true, HeadProtocol::None},
    Model{"Kolvex P-499", Group::Two, 99, 1, 1, true, HeadProtocol::None},
};

}  // namespace

std::span<const Model> Models() { return kModels; }

std::string_view ShortName(const Model& model) { return model.name.substr(kMaker.size()); }

const Model* FindModel(std::string_view name) {
  const std::string wanted = ToUpper(name);
  for (const Model& model : kModels) {
    if (ToUpper(model.name) == wanted || ToUpper(ShortName(model)) == wanted) {
      return &model;
    }
  }
  return nullptr;
}

}  // namespace simcam
