#include "io/CgiServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string_view>

#include "support/Listener.h"

namespace kolvex_bench {

namespace {

constexpr std::string_view kInputs = "ret=200&gpio1=0&gpio2=1&relay1=0&relay2=0\r\n";

std::string Reply(bool keepAlive) {
  return "HTTP/1.1 200 OK\r\nServer: camera\r\nContent-Type: text/plain\r\nContent-Length: " +
         std::to_string(kInputs.size()) + "\r\nConnection: " + (keepAlive ? "keep-alive" : "close") +
         "\r\n\r\n" + std::string(kInputs);
}

void Watch(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event);
}

void AcceptAll(int epoll, int listener, Served& served) {
  for (int descriptor; (descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    served.connections.fetch_add(1, std::memory_order_relaxed);
    Watch(epoll, descriptor);
  }
}

// A request is short and comes in one piece. False: the connection is over.
bool Answer(int descriptor, bool keepAlive, Served& served) {
  static const std::string kept = Reply(true);
  static const std::string closed = Reply(false);
  char bytes[2048];
  const ssize_t count = recv(descriptor, bytes, sizeof(bytes), 0);
  if (count <= 0) {
    return false;
  }
  const std::string_view request(bytes, static_cast<std::size_t>(count));
  const bool keep = keepAlive && request.find("Connection: close") == request.npos;
  const std::string& reply = keep ? kept : closed;
  send(descriptor, reply.data(), reply.size(), MSG_NOSIGNAL);
  served.requests.fetch_add(1, std::memory_order_relaxed);
  return keep;
}

}  // namespace

void ServeInputs(std::uint16_t port, bool keepAlive, Served& served, void (*ready)()) {
  const int listener = ListenOn(port, SOCK_NONBLOCK);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  Watch(epoll, listener);
  ready();
  for (;;) {
    epoll_event events[64];
    const int count = epoll_wait(epoll, events, 64, -1);
    for (int i = 0; i < count; ++i) {
      const int descriptor = events[i].data.fd;
      if (descriptor == listener) {
        AcceptAll(epoll, listener, served);
      } else if (!Answer(descriptor, keepAlive, served)) {
        close(descriptor);
      }
    }
  }
}

}  // namespace kolvex_bench
