#include <array>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "camera/CgiText.h"
#include "ptz/FindCgiValue.h"

using kolvex_fuzz::Check;

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
  Check(value.find_first_of(stops) == std::string::npos || stops.empty(), "a value ends at the terminators");
  Check(value.empty() || reply.find(value) != std::string::npos, "a value stands in the reply");

  // A buffer of exactly the room, on the heap, so that the sanitizer sees a write behind it.
  std::string out(room, 'x');
  const bool found =
      sarnevo::ExtractCgiValue(reply, key, {out.data(), out.size()}, stops.empty() ? '<' : stops[0]);
  if (!out.empty()) {
    const auto end = out.find('\0');
    Check(end != std::string::npos, "the text has its end");
    Check(found || end == 0, "nothing found is an empty text");
    Check(out.find_first_of("\r\n") >= end, "a value is one line");
  }

  // The PTZ side's look-up; the value is a view into the reply.
  const std::string_view ptzValue = sarnevo::FindCgiValue(reply, key, "=");
  Check(ptzValue.empty() || (ptzValue.data() > reply.data() &&
                             ptzValue.data() + ptzValue.size() <= reply.data() + reply.size()),
        "a value lies in the reply, behind its key");
  Check(ptzValue.find_first_of("<\r\n") == std::string_view::npos, "a value ends at the terminators");
  Check(ptzValue.empty() || ptzValue.data()[-1] == '=', "a value stands behind its separator");

  Check(sarnevo::ToLowerText(reply).size() == reply.size(), "lower case changes no length");
  const std::string trimmed = sarnevo::TrimText(reply);
  Check(sarnevo::TrimText(trimmed) == trimmed, "trimming twice is trimming once");
}
