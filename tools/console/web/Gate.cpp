#include "web/Gate.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace kolvex_console {

namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  return lower;
}

bool IsAddress(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> parsed{};
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), parsed.data()) == 1;
  }
  return inet_pton(AF_INET, host.c_str(), parsed.data()) == 1;
}

/// The name or address of a Host field, without the port. Empty when what follows the colon is no port.
std::string HostOf(std::string_view field) {
  const std::size_t bracket = field.rfind(']');
  const std::size_t colon = field.find(':', bracket == field.npos ? 0 : bracket);
  const std::string_view port = colon == field.npos ? std::string_view() : field.substr(colon + 1);
  if (port.find_first_not_of("0123456789") != port.npos) {
    return {};
  }
  std::string host = Lower(field.substr(0, colon));
  if (!host.empty() && host.back() == '.') {
    host.pop_back();
  }
  return host;
}

bool IsOurs(const std::string& host, const std::set<std::string>& names) {
  return host == "localhost" || host.ends_with(".localhost") || IsAddress(host) || names.contains(host);
}

}  // namespace

std::optional<Reply> Refuse(const Claims& claims, const std::set<std::string>& names) {
  if (claims.hosts != 1 || claims.host.empty()) {
    return Refusal(400, "The request must have one Host field.");
  }
  if (!IsOurs(HostOf(claims.host), names)) {
    return Refusal(421, "This server isn't known by that name; start it with --name to add one.");
  }
  const bool isRead = claims.method == "GET" || claims.method == "HEAD";
  if (!isRead && claims.method != "POST") {
    Reply reply = Refusal(405, "Only GET, HEAD and POST are taken here.");
    reply.fields.emplace_back("Allow", "GET, HEAD, POST");
    return reply;
  }
  // A proxy that adds TLS passes the Host field on, and its pages come from https.
  const std::string host = Lower(claims.host);
  const std::string origin = Lower(claims.origin);
  if (!origin.empty() && origin != "http://" + host && origin != "https://" + host) {
    return Refusal(403, "Requests of pages from elsewhere aren't taken.");
  }
  // A link to the page may be anywhere; what other pages embed or fetch may not.
  const bool isOwnPage =
      claims.fetchSite.empty() || claims.fetchSite == "same-origin" || claims.fetchSite == "none";
  if (!isOwnPage && !(isRead && claims.fetchMode == "navigate")) {
    return Refusal(403, "Requests of pages from elsewhere aren't taken.");
  }
  return std::nullopt;
}

}  // namespace kolvex_console
