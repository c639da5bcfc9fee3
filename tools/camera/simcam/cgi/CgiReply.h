#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simcam/base/Text.h"
#include "simcam/cgi/CgiDevice.h"

namespace simcam {

/// The answer of a CGI program.
struct CgiReply {
  unsigned status = 200;
  std::string body;
  bool refused = false;  ///< a parameter made no sense; nothing was changed
};

/// key=value pairs on their way into a reply.
class Pairs {
 public:
  Pairs& Add(std::string key, std::string value);
  Pairs& Add(std::string key, unsigned value) { return Add(std::move(key), Format("%u", value)); }

  std::string ToText(Group group, ReplyShape shape) const;

  /// Rearranges the pairs as the pins of an odd firmware come: reversed, doubled, in upper case, or without
  /// the last one.
  void Distort(PinStyle style);

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

/// The camera's time as HH:MM:SS and YYYY/MM/DD, UTC.
std::string TimeOfDay();
std::string Date();

/// Runs the program of that path ("/time.cgi"). Nothing when the firmware line has no such program.
std::optional<CgiReply> RunGroup1Cgi(CgiDevice& device, std::string_view path, const Parameters& parameters);
std::optional<CgiReply> RunGroup2Cgi(CgiDevice& device, std::string_view path, const Parameters& parameters);

}  // namespace simcam
