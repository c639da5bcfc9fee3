#include "driver/CDebugInfo.h"

#include <cstring>
#include <new>

namespace sarnevo {

CDebugInfo::CDebugInfo(u8 level, const char* text) : level_(level) {
  if (text == nullptr || *text == '\0') {
    return;
  }
  const std::size_t size = std::strlen(text) + 1;
  text_.reset(new (std::nothrow) char[size]);
  if (text_) {
    std::memcpy(text_.get(), text, size);
  }
}

}  // namespace sarnevo
