#include "camera/CgiReply.h"

#include <algorithm>

namespace sarnevo {

bool CgiReply::Read(Web::HttpRequest& request, std::size_t size, u32& came) {
  came = 0;
  const bool read = request.Read(buffer_.data() + count_, static_cast<u32>(std::min(size, Room())), &came);
  count_ += came;
  return read;
}

bool CgiReply::ReadWhatIsReady(Web::HttpRequest& request) {
  u32 came = 0;
  for (u32 size = 1; size > 0 && Room() > 0; size = request.GetDataAvailable()) {
    if (!Read(request, size, came)) {
      return false;
    }
  }
  return true;
}

void CgiReply::ReadToEnd(Web::HttpRequest& request) {
  u32 came = 0;
  while (Room() > 0 && Read(request, Room(), came) && came > 0) {
  }
}

}  // namespace sarnevo
