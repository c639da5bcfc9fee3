#include <vector>

#include "FuzzTarget.h"
#include "video/Mpeg4Header.h"

using kolvex_fuzz::Check;

FUZZ_TARGET(Mpeg4Header) {
  const auto size = sarnevo::ParseMpeg4Header(input);
  if (!size) {
    return;
  }
  Check(size->width != 0 && size->height != 0, "a size is never 0");
  Check(size->width < 8192 && size->height < 8192, "each side has 13 bits");
  Check(sarnevo::BeginsWith(input, sarnevo::Mpeg4StartCode::VisualObjectSequence), "the sequence comes first");
  // The headers end in front of the picture, so that nothing after it plays a part.
  std::vector<std::uint8_t> longer(input.begin(), input.end());
  longer.insert(longer.end(), {0, 0, 1, 0xB6, 0xFF});
  const auto again = sarnevo::ParseMpeg4Header(longer);
  Check(again && again->width == size->width && again->height == size->height,
        "a picture after changes nothing");
}
