// What the console's server parses itself of a request: the target, and the fields that decide whether it may pass.
// One a line: target, method, Host, Origin, Sec-Fetch-Site, Sec-Fetch-Mode, Content-Type.
#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "web/Gate.h"
#include "web/Http.h"

using kolvex_console::Request;
using kolvex_fuzz::Check;

namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
  return lower;
}

/// Every byte escaped.
std::string Encode(std::string_view text) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char each : text) {
    const auto byte = static_cast<unsigned char>(each);
    encoded += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
  }
  return encoded;
}

bool IsClean(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](unsigned char each) { return each < 0x20 || each == 0x7f; });
}

void CheckTarget(std::string_view target) {
  Request request;
  if (!kolvex_console::ParseTarget(target, request)) {
    return;
  }
  std::string again;
  for (const std::string& segment : request.path) {
    Check(IsClean(segment), "no control character in a name");
    again += "/" + Encode(segment);
  }
  // An empty last segment is a path that ends in a slash.
  again += request.path.empty() || request.path.back().empty() ? "/" : "";
  for (const auto& [name, value] : request.query) {
    Check(IsClean(name) && IsClean(value), "no control character in a query");
    again += (again.find('?') == again.npos ? "?" : "&") + Encode(name) + "=" + Encode(value);
  }
  Request second;
  Check(kolvex_console::ParseTarget(again, second), "what was parsed can be written and parsed again");
  Check(second.path == request.path && second.query == request.query, "and is the same");
}

}  // namespace

FUZZ_TARGET(ConsoleRequest) {
  std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  std::array<std::string_view, 7> lines;
  for (std::string_view& line : lines) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  const auto& [target, method, host, origin, fetchSite, fetchMode, contentType] = lines;
  CheckTarget(target);
  Check(!kolvex_console::IsJson(contentType) || Lower(contentType).starts_with("application/json"),
        "only JSON's type is taken for it");
  const kolvex_console::Claims claims{.method = method,
                                      .host = host,
                                      .hosts = 1,
                                      .origin = origin,
                                      .fetchSite = fetchSite,
                                      .fetchMode = fetchMode};
  if (kolvex_console::Refuse(claims, {"cams.example"})) {
    return;
  }
  Check(method == "GET" || method == "HEAD" || method == "POST", "no other method passes");
  Check(origin.empty() || Lower(origin).ends_with("://" + Lower(host)), "another origin never passes");
  if (method == "POST") {
    Check(fetchSite != "cross-site" && fetchSite != "same-site", "a change of another page never passes");
  }
  const std::string name = Lower(host.substr(0, host.rfind(':')));
  const bool hasLetters = std::any_of(name.begin(), name.end(), [](unsigned char each) { return each > 'f'; });
  Check(!hasLetters || name.find("localhost") != name.npos || name.find("cams.example") == 0,
        "a name that isn't ours never passes");
}
