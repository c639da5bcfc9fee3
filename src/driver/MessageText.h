#pragma once

#include <cstdarg>
#include <memory>

namespace sarnevo {

/// The finished text of a printf-style message, in a buffer of exactly its size. Null when the format can't be
/// carried out or there is no memory: the message is then lost, and nothing else.
[[gnu::format(printf, 1, 0)]] std::unique_ptr<char[]> FormatMessageText(const char* format,
                                                                        std::va_list arguments) noexcept;

}  // namespace sarnevo
