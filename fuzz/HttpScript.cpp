#include "HttpScript.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kolvex_fuzz {

namespace {

thread_local HttpScript* current = nullptr;

ino_t NodeOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

HttpScript::HttpScript(std::vector<Bytes> replies, bool keepsOpen)
    : replies_(std::move(replies)), keepsOpen_(keepsOpen) {
  current = this;
}

HttpScript::~HttpScript() {
  current = nullptr;
  for (const Link& link : links_) {
    close(link.ours);
  }
}

HttpScript* HttpScript::Current() { return current; }

int HttpScript::Connect(int descriptor, const sockaddr_in& to) {
  int ends[2];
  Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "a pair of sockets");
  const int room = 1 << 20;  // a whole reply waits in it
  setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
  Check(dup3(ends[1], descriptor, O_CLOEXEC) == descriptor, "one of them in the place of the client's");
  close(ends[1]);
  links_.push_back({ends[0], NodeOf(descriptor), {ntohl(to.sin_addr.s_addr), ntohs(to.sin_port), {}}});
  return 0;
}

bool HttpScript::Takes(int descriptor, Bytes sent) {
  const ino_t node = NodeOf(descriptor);
  for (Link& link : links_) {
    if (link.theirs != node) {
      continue;
    }
    std::string& text = link.request.text;
    text.append(sent.begin(), sent.end());
    if (text.ends_with("\r\n\r\n")) {
      requests_.push_back(link.request);
      text.clear();
      const bool more = used_ < replies_.size();
      if (more) {
        const Bytes reply = replies_[used_++];
        const ssize_t count = write(link.ours, reply.data(), reply.size());
        Check(count == static_cast<ssize_t>(reply.size()), "the reply finds room");
      }
      if (!more || !keepsOpen_) {
        shutdown(link.ours, SHUT_WR);
      }
    }
    return true;
  }
  return false;
}

std::vector<Bytes> SplitReplies(Bytes input) {
  constexpr std::string_view kLine = "~~~\n";
  std::vector<Bytes> parts;
  std::string_view rest(reinterpret_cast<const char*>(input.data()), input.size());
  for (std::size_t end = 0; end != rest.npos;) {
    end = rest.find(kLine);
    const std::string_view part = rest.substr(0, end);
    parts.emplace_back(reinterpret_cast<const std::uint8_t*>(part.data()), part.size());
    rest.remove_prefix(end == rest.npos ? rest.size() : end + kLine.size());
  }
  return parts;
}

}  // namespace kolvex_fuzz

// In front of the C library's: seen by the shared libraries too.
#define FUZZ_IN_FRONT extern "C" __attribute__((visibility("default")))

using kolvex_fuzz::HttpScript;

namespace {

template <typename Function>
Function* Next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

FUZZ_IN_FRONT int connect(int descriptor, const sockaddr* to, socklen_t size) {
  static const auto next = Next("connect", &connect);
  HttpScript* const script = HttpScript::Current();
  return script != nullptr && to->sa_family == AF_INET
             ? script->Connect(descriptor, *reinterpret_cast<const sockaddr_in*>(to))
             : next(descriptor, to, size);
}

FUZZ_IN_FRONT ssize_t send(int descriptor, const void* data, size_t size, int flags) {
  static const auto next = Next("send", &send);
  HttpScript* const script = HttpScript::Current();
  return script != nullptr && script->Takes(descriptor, {static_cast<const std::uint8_t*>(data), size})
             ? static_cast<ssize_t>(size)
             : next(descriptor, data, size, flags);
}

// Every name that isn't an address has the same one, at once: nobody is asked. Called on threads of the client
// library's own.
FUZZ_IN_FRONT int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
  static const auto next = Next("getaddrinfo", &getaddrinfo);
  addrinfo numeric = hints != nullptr ? *hints : addrinfo{};
  numeric.ai_flags |= AI_NUMERICHOST;
  const int result = next(name, service, &numeric, found);
  return result == 0 ? result : next("127.0.0.2", service, &numeric, found);
}
