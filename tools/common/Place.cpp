#include "Place.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>

#include <fmt/format.h>

#include "Failure.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

std::string Resolve(const std::string& name) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int error = getaddrinfo(name.c_str(), nullptr, &hints, &list); error != 0) {
    throw Failure(ExitCode::Camera, fmt::format("There is no address for {}: {}; check the name, or give the "
                                                "camera's IPv4 address.",
                                                Quoted(name), gai_strerror(error)));
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  std::array<char, INET_ADDRSTRLEN> text{};
  const auto* const found = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
  inet_ntop(AF_INET, &found->sin_addr, text.data(), text.size());
  return text.data();
}

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
         c == '_';
}

}  // namespace

std::string Place::Text() const { return fmt::format("{}:{}", address, port); }

Place Place::Parse(std::string_view text) {
  if (text.find('@') != text.npos) {
    throw Failure(ExitCode::Usage,
                  "A camera's address holds no user name or password: give --user NAME, or set KOLVEX_USER and "
                  "KOLVEX_PASSWORD.");
  }
  std::string_view rest = text;
  if (const std::size_t scheme = text.find("://"); scheme != text.npos) {
    if (strcasecmp(std::string(text.substr(0, scheme)).c_str(), "http") != 0) {
      throw Failure(ExitCode::Usage,
                    fmt::format("{} is no address of a camera: these cameras speak plain HTTP, like "
                                "http://192.0.2.7/.",
                                Quoted(text)));
    }
    rest.remove_prefix(scheme + 3);
    rest = rest.substr(0, rest.find('/'));
  }
  in6_addr six{};
  if (rest.find('[') != rest.npos || inet_pton(AF_INET6, std::string(rest).c_str(), &six) == 1) {
    throw Failure(ExitCode::Usage,
                  fmt::format("{} is an IPv6 address: the driver reaches cameras by IPv4 only.", Quoted(text)));
  }
  const std::size_t colon = rest.find(':');
  const std::string host(rest.substr(0, colon));
  Place place;
  if (colon != rest.npos) {
    const auto port = kolvex_tools::ParseNumber(rest.substr(colon + 1), 1, 65'535);
    if (!port) {
      // Not repeated: what is there may be a password.
      throw Failure(ExitCode::Usage, "What follows the colon is no port: it must be a number from 1 to 65535.");
    }
    place.port = static_cast<sarnevo::u16>(*port);
  }
  if (host.empty() || !std::all_of(host.begin(), host.end(), IsHostCharacter)) {
    throw Failure(ExitCode::Usage,
                  fmt::format("{} is no camera address: it must be ADDRESS or ADDRESS:PORT, like 192.0.2.7 or "
                              "192.0.2.7:8080.",
                              Quoted(text)));
  }
  in_addr parsed{};
  if (inet_pton(AF_INET, host.c_str(), &parsed) == 1) {
    place.address = host;
  } else if (host.find_first_not_of("0123456789.") == host.npos) {
    // The resolver would take 1.2 or 300.1.1.1 for something that nobody means.
    throw Failure(
        ExitCode::Usage,
        fmt::format("{} is no camera address: it must be four numbers from 0 to 255 with dots between "
                    "them.",
                    Quoted(text)));
  } else {
    place.address = Resolve(host);
  }
  return place;
}

std::string Quoted(std::string_view typed) {
  if (typed.find('@') != typed.npos || typed.find("pass") != typed.npos) {
    return "What was given";
  }
  return fmt::format("\"{}\"", kolvex_tools::Shown(typed, 60));
}

}  // namespace kolvex_host
