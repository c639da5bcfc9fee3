// Raw bytes as the replies to up to four requests, through the HTTP client. An input chooses the path, whether
// connections are kept, how the body is read, and the replies, redirects included. What comes out is what a model of
// replies says.
#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "FuzzTarget.h"
#include "HttpScript.h"
#include "HttpReplyModel.h"
#include "http/HttpRequest.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using kolvex_fuzz::HttpReplyModel;
using kolvex_fuzz::HttpScript;
using sarnevo::u32;
using Web::HttpError;
using Web::HttpRequest;

constexpr std::uint32_t kCamera = 0x7F000001;
constexpr std::uint16_t kPort = 8080;

std::string_view TextOf(Bytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

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

// Reads as the input's byte says. The error that ended it, None at the body's end.
HttpError ReadBody(HttpRequest& request, std::uint8_t pattern, std::string& body) {
  std::vector<char> block(1 + pattern * 8U);
  for (;;) {
    u32 ready = 0;
    if ((pattern & 1) != 0) {
      ready = request.GetDataAvailable();
      if (ready == 0) {
        return Web::LastHttpError();
      }
    }
    u32 count = 0;
    const bool read = request.Read(block.data(), static_cast<u32>(block.size()), &count);
    Check(count <= block.size() && (read || count == 0), "a read gives what fits");
    Check((pattern & 1) == 0 || (read && count == std::min<std::size_t>(ready, block.size())),
          "what is ready can be read");
    if (!read || count == 0) {
      return read ? HttpError::None : Web::LastHttpError();
    }
    body.append(block.data(), count);
  }
}

// @param reply  the last that was used; nothing when the server closed without a word
void CheckAgainstModel(const std::optional<Bytes>& reply, bool keepsOpen, bool sent, u32 status,
                       HttpError error, const std::string& body) {
  if (!reply) {
    Check(!sent && error == HttpError::ConnectionBroken, "no reply is a broken connection");
    return;
  }
  const HttpReplyModel model(TextOf(*reply));
  if (model.end == HttpReplyModel::End::Unsure || error == HttpError::RedirectRefused) {
    return;
  }
  Check(sent == model.hasHead, "a reply with a whole head is one, any other isn't");
  if (!sent) {
    const HttpError cut = keepsOpen ? HttpError::TimedOut : HttpError::ConnectionBroken;
    Check(error == HttpError::InvalidReply || error == cut, "a head that is none has its reason");
    return;
  }
  Check(status == model.status, "the status is the reply's");
  Check(body == model.body, "the body is the reply's");
  const bool whole =
      model.end == HttpReplyModel::End::Whole || (model.end == HttpReplyModel::End::Open && !keepsOpen);
  Check((error == HttpError::None) == whole, "a whole body is distinguished from a broken one");
}

void Exchange(HttpRequest& request, HttpScript& script, std::string_view path, std::uint8_t how,
              const std::vector<Bytes>& replies, bool keepsOpen) {
  const std::size_t before = script.Requests().size() - script.RepliesUsed();
  std::string body;
  const bool sent = request.Send("GET", std::string(path).c_str(), (how & 4) != 0);
  HttpError error = Web::LastHttpError();
  if (sent) {
    Check((error == HttpError::LoginFailure) == (request.GetStatusCode() == 401),
          "wrong credentials are reported");
    error = ReadBody(request, how, body);
  }
  const bool answered = script.Requests().size() - script.RepliesUsed() == before;
  CheckAgainstModel(answered ? std::optional(replies[script.RepliesUsed() - 1]) : std::nullopt, keepsOpen, sent,
                    request.GetStatusCode(), error, body);
  u32 count = 1;
  std::array<char, 16> more;
  const bool read = request.Read(more.data(), static_cast<u32>(more.size()), &count);
  Check(read == (error == HttpError::None) && Web::LastHttpError() == error && count == 0,
        "what has ended stays as it ended");
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
  const bool keepsOpen = (flags & 2) != 0;
  const int free = LowestFree();
  {
    HttpScript script(replies, keepsOpen);
    // A server that closes is never waited for, however busy the machine is.
    HttpRequest request("127.0.0.1", kPort, "user", "secret", keepsOpen ? 3 : 10'000, 1, 0);
    request.KeepConnection(keeps);
    for (int i = 0; i < 4 && (i == 0 || script.RepliesUsed() < replies.size()); ++i) {
      const std::size_t before = script.Requests().size();
      Exchange(request, script, path, how, replies, keepsOpen);
      Check(script.Requests().size() <= before + 11 + (keeps ? 1 : 0), "redirects have their limit");
    }
    for (const auto& sent : script.Requests()) {
      CheckRequest(sent, keeps);
    }
  }
  Check(LowestFree() == free, "no descriptor is left");
}
