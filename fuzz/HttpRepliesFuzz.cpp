// Raw bytes as the replies to up to four requests, through the HTTP layer and its real client library. An input
// chooses the path, whether connections are kept, how the body is read, and the replies, redirects included.
#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "FuzzTarget.h"
#include "HttpScript.h"
#include "platform/HttpTransport.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using kolvex_fuzz::HttpScript;
using namespace sarnevo::platform;
using namespace std::chrono_literals;

constexpr std::uint32_t kCamera = 0x7F000001;
constexpr std::uint16_t kPort = 8080;

std::string_view TextOf(Bytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

bool Holds(std::string_view text, std::string_view word) {
  const auto same = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
  return std::search(text.begin(), text.end(), word.begin(), word.end(), same) != text.end();
}

// A request is one line and the headers that the library sends, whatever path or redirect led to it; and the
// credentials are for the camera alone.
void CheckRequest(const HttpScript::Request& request, bool keeps) {
  static const std::set<std::string_view> kHeaders{"Host",          "Authorization", "User-Agent",
                                                   "Cache-Control", "Pragma",        "Connection"};
  std::string_view rest = request.text;
  std::set<std::string_view> seen;
  for (bool first = true; rest != "\r\n"; first = false) {
    const std::string_view line = rest.substr(0, rest.find("\r\n"));
    Check(line.size() < rest.size(), "each line of a request has its end");
    rest.remove_prefix(line.size() + 2);
    Check(std::none_of(line.begin(), line.end(), [](char c) { return c >= 0 && c < ' '; }),
          "no control character");
    if (first) {
      Check(line.starts_with("GET /") && line.ends_with(" HTTP/1.1") && std::ranges::count(line, ' ') == 2,
            "a request line has three words");
    } else {
      const std::string_view name = line.substr(0, line.find(": "));
      Check(kHeaders.contains(name) && seen.insert(name).second, "only the library's own headers, each once");
    }
  }
  const bool toCamera = request.address == kCamera && request.port == kPort;
  Check(toCamera || !seen.contains("Authorization"), "the credentials go to nobody else");
  Check(keeps != seen.contains("Connection"), "a connection that isn't kept is closed by both");
}

// Each byte of the body came from the replies, in order.
bool ComesFrom(const std::vector<Bytes>& replies, const std::vector<std::uint8_t>& body) {
  auto at = body.begin();
  for (const Bytes reply : replies) {
    for (const std::uint8_t byte : reply) {
      at += at != body.end() && *at == byte ? 1 : 0;
    }
  }
  return at == body.end();
}

// Reads as the input's byte says. The error that ended it, None at the body's end.
HttpError ReadBody(HttpExchange& exchange, std::uint8_t pattern, std::vector<std::uint8_t>& body) {
  std::vector<std::uint8_t> block(1 + pattern * 8U);
  for (;;) {
    std::size_t ready = 0;
    if ((pattern & 1) != 0) {
      const HttpError error = exchange.DataAvailable(ready);
      if (error != HttpError::None || ready == 0) {
        return error;
      }
    }
    std::size_t count = 0;
    const HttpError error = exchange.Read(block, count);
    Check(count <= block.size() && (error == HttpError::None || count == 0), "a read gives what fits");
    Check((pattern & 1) == 0 || (error == HttpError::None && count == std::min(ready, block.size())),
          "what is ready can be read");
    if (error != HttpError::None || count == 0) {
      return error;
    }
    body.insert(body.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

void CheckBody(const HttpExchange& exchange, const std::vector<Bytes>& replies, std::size_t size) {
  const auto length = exchange.ContentLength();
  const std::uint32_t status = exchange.StatusCode();
  const bool chunked =
      std::ranges::any_of(replies, [](Bytes reply) { return Holds(TextOf(reply), "transfer-encoding"); });
  if (length && !chunked) {
    // RFC 9112, 6.3: these have no body, whatever they say.
    Check(size == (status / 100 == 1 || status == 204 || status == 304 ? 0 : *length),
          "a whole body is as long as it says");
  }
}

void Exchange(HttpKeeper* keeper, std::string_view path, std::uint8_t how, const std::vector<Bytes>& replies) {
  HttpExchange exchange({"fuzz", 3ms, 1, 0}, {"127.0.0.1", kPort}, keeper);
  std::vector<std::uint8_t> body;
  HttpError error = exchange.Send({"GET", path, (how & 4) == 0, "user", "secret"});
  if (error == HttpError::None) {
    Check(exchange.StatusCode() >= 100 && exchange.StatusCode() <= 999, "a status code has three digits");
    error = ReadBody(exchange, how, body);
  }
  Check(ComesFrom(replies, body), "the body is the server's");
  if (error == HttpError::None) {
    CheckBody(exchange, replies, body.size());
  }
  std::size_t count = 1;
  std::array<std::uint8_t, 16> more;
  Check(exchange.Read(more, count) == error && count == 0, "what has ended stays as it ended");
}

int LowestFree() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

}  // namespace

FUZZ_TARGET(HttpReplies) {
  kolvex_fuzz::Reader reader(input);
  const std::uint8_t flags = reader.Byte();
  const std::uint8_t how = reader.Byte();
  std::vector<Bytes> replies = kolvex_fuzz::SplitReplies(reader.Rest());
  const std::string path(TextOf(replies.front()));
  replies.erase(replies.begin());
  const bool keeps = (flags & 1) != 0;
  // What the client library opens once for the process is none of an exchange's.
  static const HttpError once = HttpExchange({"fuzz", 1ms, 1, 0}, {"127.0.0.1", 1}).Send({"GET", "", true});
  static_cast<void>(once);
  const int free = LowestFree();
  {
    HttpScript script(replies, (flags & 2) != 0);
    std::optional<HttpKeeper> keeper;
    if (keeps) {
      keeper.emplace();
    }
    for (int i = 0; i < 4 && (i == 0 || script.RepliesUsed() < replies.size()); ++i) {
      const std::size_t before = script.Requests().size();
      Exchange(keeps ? &*keeper : nullptr, path, how, replies);
      Check(script.Requests().size() <= before + 11 + (keeps ? 1 : 0), "redirects have their limit");
    }
    for (const auto& request : script.Requests()) {
      CheckRequest(request, keeps);
    }
  }
  // The look-up of a name may still be letting go of its own.
  for (int i = 0; LowestFree() != free; ++i) {
    Check(i < 2000, "no descriptor is left");
    std::this_thread::sleep_for(1ms);
  }
}
