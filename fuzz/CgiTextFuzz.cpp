#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "camera/CgiText.h"

using kolvex_fuzz::Check;

namespace {

// What GetCgiValue gives, found by words instead of positions: for keys without terminators.
std::string ValueOf(const std::string& reply, const std::string& key, const std::string& stops) {
  for (std::size_t begin = 0; begin < reply.size();) {
    const std::size_t end = std::min(reply.find_first_of(stops, begin), reply.size());
    const std::string word = reply.substr(begin, end - begin);
    const std::size_t at = word.find(key);
    const std::size_t equals = at == word.npos ? at : word.find('=', at);
    if (equals != word.npos && sarnevo::TrimText(word.substr(at, equals - at)) == key) {
      return word.substr(equals + 1);
    }
    begin = end + 1;
  }
  return {};
}

// What ExtractCgiValue puts into a buffer with room for @p room characters; nothing when it finds nothing.
std::optional<std::string> LineValueOf(const std::string& reply, const std::string& key, std::string stops,
                                       std::size_t room) {
  const std::size_t at = reply.find(key);
  const std::size_t equals = at == reply.npos ? at : reply.find('=', at);
  if (equals == reply.npos) {
    return {};
  }
  const std::string rest = reply.substr(equals + 1);
  stops += std::string("\r\n\0", 3);
  return rest.substr(0, std::min(rest.find_first_of(stops), room));
}

}  // namespace

FUZZ_TARGET(CgiText) {
  kolvex_fuzz::Reader reader(input);
  const auto text = [](kolvex_fuzz::Bytes bytes) {
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  const std::size_t room = reader.Byte();
  const std::string key = text(reader.Take(reader.Byte() % 16));
  const std::string stops = text(reader.Take(reader.Byte() % 4));
  const std::string reply = text(reader.Rest());

  const std::string value = sarnevo::GetCgiValue(reply, key, "=", stops);
  if (!key.empty() && !stops.empty() && key.find_first_of(stops + "=") == key.npos) {
    Check(value == ValueOf(reply, key, stops), "a value is what comes after its key in one word");
  }
  Check(value.find_first_of(stops) == std::string::npos || stops.empty(), "a value ends at the terminators");
  Check(value.empty() || reply.find(value) != std::string::npos, "a value is in the reply");

  // A buffer of exactly the room, on the heap, so that the sanitizer sees a write past it.
  std::string out(room, 'x');
  const char stop = stops.empty() ? '<' : stops[0];
  const bool found = sarnevo::ExtractCgiValue(reply, key, {out.data(), out.size()}, stop);
  if (!out.empty()) {
    const auto expected = LineValueOf(reply, key, {stop}, room - 1);
    Check(found == expected.has_value(), "what is there is found");
    Check(out.find('\0') != out.npos && out.c_str() == expected.value_or(""),
          "a value is the rest of its line");
  }

  // The PTZ side's look-up; the value is a view into the reply.
  const std::string_view ptzValue = sarnevo::FindCgiValue(reply, key, "=");
  Check(ptzValue.empty() || (ptzValue.data() > reply.data() &&
                             ptzValue.data() + ptzValue.size() <= reply.data() + reply.size()),
        "a value lies in the reply, after its key");
  const std::size_t at = std::min(reply.find(key), reply.size());
  const std::size_t equals = reply.find('=', at);
  const std::string rest = at < reply.size() && equals != reply.npos ? reply.substr(equals + 1) : "";
  Check(ptzValue == rest.substr(0, rest.find_first_of("<\r\n")),
        "a value is the rest of its line, up to any markup");

  Check(sarnevo::ToLowerText(reply).size() == reply.size(), "lower case changes no length");
  const std::string trimmed = sarnevo::TrimText(reply);
  Check(sarnevo::TrimText(trimmed) == trimmed, "trimming twice is trimming once");
}
