#pragma once

#include <array>
#include <cstdarg>
#include <memory>

namespace sarnevo {

/// The finished text of a printf-style message. Short ones, that is nearly all, cost no memory beyond the
/// object: the host may end a thread of ours from within a message, and what lies on the stack then goes with
/// it.
class MessageText {
 public:
  [[gnu::format(printf, 2, 0)]] MessageText(const char* format, std::va_list arguments) noexcept;
  MessageText(const MessageText&) = delete;
  MessageText& operator=(const MessageText&) = delete;

  /// Null when the format can't be carried out or there is no memory: the message is then lost, and nothing
  /// else.
  const char* Get() const noexcept { return text_; }
  /// Gives back what a long text holds. Get is void then.
  void Free() noexcept { long_.reset(); }

 private:
  std::array<char, 512> short_;
  std::unique_ptr<char[]> long_;
  const char* text_ = nullptr;
};

}  // namespace sarnevo
