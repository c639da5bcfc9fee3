#pragma once

#include <cstdarg>
#include <memory>

namespace sarnevo {

/// The finished text of a printf-style message.
class MessageText {
 public:
  [[gnu::format(printf, 2, 0)]] MessageText(const char* format, std::va_list arguments) noexcept;
  MessageText(const MessageText&) = delete;
  MessageText& operator=(const MessageText&) = delete;

  /// Null when the format can't be carried out or there is no memory: the message is then lost, and nothing
  /// else.
  const char* Get() const noexcept { return text_.get(); }

 private:
  std::unique_ptr<char[]> text_;
};

}  // namespace sarnevo
