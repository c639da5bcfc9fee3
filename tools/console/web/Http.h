#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "hub/Outlet.h"

namespace kolvex_console {

/// One request that has passed the gate: who asked is allowed to.
struct Request {
  std::string method;                        ///< GET (HEAD counts as such) or POST
  std::vector<std::string> path;             ///< segments, percent-decoded; "/" has none
  std::map<std::string, std::string> query;  ///< percent-decoded; the last one of a name counts
  bool isJson = false;                       ///< that is what the body's type says
  std::string body;                          ///< bounded by Limits::body
};

/// A whole answer.
struct Reply {
  unsigned status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
  std::vector<std::pair<std::string, std::string>> fields;  ///< further header fields
};

/// What a door answers: a whole reply, or a stream that goes on until one side ends it.
using Answer = std::variant<Reply, std::shared_ptr<Outlet>>;
/// Takes the answer, on any thread, once. An answer to a client that has left is dropped.
using Respond = std::function<void(Answer)>;
/// Looks at a request on the server's thread; must not block there.
using Doors = std::function<void(const Request&, Respond)>;

/// A failure for a program and a person: {"error": sentence}.
Reply Refusal(unsigned status, const std::string& sentence);
Reply JsonReply(const nlohmann::json& value, unsigned status = 200);

/// Of a Content-Type field (RFC 9110, 8.3), whatever its parameters.
bool IsJson(std::string_view contentType);

/// Splits and decodes a request's target. False when an escape is broken, or decodes to a control character.
bool ParseTarget(std::string_view target, Request& into);

}  // namespace kolvex_console
