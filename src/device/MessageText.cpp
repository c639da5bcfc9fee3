#include "device/MessageText.h"

#include <cstddef>
#include <cstdio>
#include <new>

namespace sarnevo {

MessageText::MessageText(const char* format, std::va_list arguments) noexcept {
  std::va_list counting;
  va_copy(counting, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, counting);
  va_end(counting);
  if (length >= 0) {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    text_.reset(new (std::nothrow) char[size]);
    if (text_) {
      std::vsnprintf(text_.get(), size, format, arguments);
    }
  }
}

}  // namespace sarnevo
