#include "camera/CCameraProperties.h"

#include <algorithm>

namespace sarnevo {

void CCameraProperties::AddFormat(u32 format) { formats_.push_back(format); }

void CCameraProperties::AddResolution(const CResolutionInfo& resolution) {
  const auto sameSize = [&resolution](const CResolutionInfo& other) {
    return other.GetWidth() == resolution.GetWidth() && other.GetHeight() == resolution.GetHeight();
  };
  if (resolution.GetWidth() == 0 || std::none_of(resolutions_.begin(), resolutions_.end(), sameSize)) {
    resolutions_.push_back(resolution);
  }
}

u32 CCameraProperties::GetFirstFormat() {
  nextFormat_ = 0;
  return GetNextFormat();
}

u32 CCameraProperties::GetNextFormat() { return nextFormat_ < formats_.size() ? formats_[nextFormat_++] : 0; }

CResolutionInfo* CCameraProperties::GetFirstResolution() {
  nextResolution_ = 0;
  return GetNextResolution();
}

CResolutionInfo* CCameraProperties::GetNextResolution() {
  return nextResolution_ < resolutions_.size() ? &resolutions_[nextResolution_++] : nullptr;
}

}  // namespace sarnevo
