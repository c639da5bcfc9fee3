#include "camera/ReplyBody.h"

#include <algorithm>

namespace sarnevo {

bool ReadBody(Web::HttpRequest& request, std::size_t most, u32 block, std::vector<u8>& body) {
  body.clear();
  while (block > 0 && body.size() < most) {
    // Most replies come in one piece, which goes straight to its place.
    const u32 available = request.GetDataAvailable();
    if (available == 0) {
      return Web::LastHttpError() == Web::HttpError::None;
    }
    const std::size_t before = body.size();
    u32 count = 0;
    body.resize(before + std::min<std::size_t>({available, block, most - before}));
    const bool read = request.Read(&body[before], static_cast<u32>(body.size() - before), &count);
    body.resize(before + count);
    if (!read) {
      return false;
    }
  }
  return true;
}

bool WasEndedByCamera() noexcept {
  const Web::HttpError error = Web::LastHttpError();
  return error != Web::HttpError::Cancelled && error != Web::HttpError::OutOfResources;
}

std::string_view TextOf(const std::vector<u8>& body) noexcept {
  const std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  return text.substr(0, text.find('\0'));
}

}  // namespace sarnevo
