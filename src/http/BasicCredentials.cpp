#include "http/BasicCredentials.h"

#include <cstddef>
#include <cstdint>

#include "platform/SecureErase.h"

namespace Web {

namespace {

constexpr std::string_view kBegin = "Authorization: Basic ";
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// RFC 4648, 4: three bytes are four digits of six bits; a "=" stands for each byte that the last group lacks.
void AppendBase64(std::string& text, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::string_view group = bytes.substr(i, 3);
    std::uint32_t bits = 0;
    for (std::size_t place = 0; place < 3; ++place) {
      bits = bits << 8 | (place < group.size() ? static_cast<std::uint8_t>(group[place]) : 0U);
    }
    for (std::size_t place = 0; place < 4; ++place) {
      text += place <= group.size() ? kDigits[bits >> (18 - 6 * place) & 0x3F] : '=';
    }
  }
}

}  // namespace

std::string BasicCredentials(std::string_view userName, std::string_view password) {
  std::string pair;
  std::string line;
  pair.reserve(userName.size() + 1 + password.size());
  line.reserve(kBegin.size() + (pair.capacity() + 2) / 3 * 4);
  pair.append(userName).append(1, ':').append(password);
  line.append(kBegin);
  AppendBase64(line, pair);
  sarnevo::platform::SecureErase(pair);
  return line;
}

}  // namespace Web
