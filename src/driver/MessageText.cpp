#include "driver/MessageText.h"

#include <cstdio>
#include <new>

namespace sarnevo {

std::unique_ptr<char[]> FormatMessageText(const char* format, std::va_list arguments) noexcept {
  std::va_list counting;
  va_copy(counting, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, counting);
  va_end(counting);
  if (length < 0) {
    return nullptr;
  }
  const std::size_t size = static_cast<std::size_t>(length) + 1;
  std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
  if (text) {
    std::vsnprintf(text.get(), size, format, arguments);
  }
  return text;
}

}  // namespace sarnevo
