#include "device/MessageText.h"

#include <cstddef>
#include <cstdio>
#include <new>

namespace sarnevo {

MessageText::MessageText(const char* format, std::va_list arguments) noexcept {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(short_.data(), short_.size(), format, arguments);
  if (length >= 0 && static_cast<std::size_t>(length) < short_.size()) {
    text_ = short_.data();
  } else if (length >= 0) {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    long_.reset(new (std::nothrow) char[size]);
    if (long_) {
      std::vsnprintf(long_.get(), size, format, again);
      text_ = long_.get();
    }
  }
  va_end(again);
}

}  // namespace sarnevo
