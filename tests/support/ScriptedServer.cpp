#include "support/ScriptedServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <list>
#include <memory>
#include <stdexcept>

#include "platform/SocketAddress.h"

namespace kolvex_test {

namespace {

using sarnevo::platform::SocketAddress;

const sockaddr* Bare(const SocketAddress& address) { return reinterpret_cast<const sockaddr*>(address.Get()); }

int Listen(const char* address, std::uint16_t& port, int backlog) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  SocketAddress local = *SocketAddress::Parse(address, port);
  socklen_t size = sizeof(sockaddr_in);
  if (bind(descriptor, Bare(local), size) != 0 || listen(descriptor, backlog) != 0 ||
      getsockname(descriptor, reinterpret_cast<sockaddr*>(local.Get()), &size) != 0) {
    close(descriptor);
    throw std::runtime_error("the test server can't listen");
  }
  port = local.Port();
  return descriptor;
}

}  // namespace

ScriptedServer::Connection::~Connection() { close(descriptor_); }

std::string ScriptedServer::Connection::ReadHead() {
  std::string head;
  char byte = 0;
  while (!head.ends_with("\r\n\r\n") && recv(descriptor_, &byte, 1, 0) == 1) {
    head += byte;
  }
  return head;
}

bool ScriptedServer::Connection::Send(std::string_view bytes) {
  // It blocks until all is on its way.
  return send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool ScriptedServer::Connection::Drip(std::string_view bytes, std::chrono::milliseconds pause) {
  for (; !bytes.empty() && Send(bytes.substr(0, 1)); bytes.remove_prefix(1)) {
    std::this_thread::sleep_for(pause);
  }
  return bytes.empty();
}

void ScriptedServer::Connection::WaitForEnd() {
  char bytes[256];
  while (recv(descriptor_, bytes, sizeof(bytes), 0) > 0) {
  }
}

void ScriptedServer::Connection::Reset() {
  const linger none{1, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
}

void ScriptedServer::Connection::Shutdown() { shutdown(descriptor_, SHUT_RDWR); }

ScriptedServer::ScriptedServer(Script script, const char* address, std::uint16_t port)
    : script_(std::move(script)),
      port_(port),
      listener_(Listen(address, port_, 64)),
      accepting_([this] { Accept(); }) {}

void ScriptedServer::Accept() {
  struct Running {
    std::weak_ptr<Connection> connection;
    std::future<void> end;
  };
  std::list<Running> all;
  for (int descriptor = -1; (descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    all.remove_if([](const Running& one) {
      return one.end.wait_for(std::chrono::seconds(0)) != std::future_status::timeout;
    });
    auto connection = std::make_shared<Connection>(descriptor, count_++);
    all.push_back({connection, {}});
    all.back().end = std::async(std::launch::async, [this, connection = std::move(connection)]() mutable {
      script_(*connection);
      connection.reset();
    });
  }
  for (const Running& one : all) {
    if (const auto connection = one.connection.lock()) {
      connection->Shutdown();
    }
  }
}

ScriptedServer::~ScriptedServer() {
  shutdown(listener_, SHUT_RDWR);
  accepting_.join();
  close(listener_);
}

Blackhole::Blackhole(const char* address, std::uint16_t port) : port_(port) {
  descriptors_.push_back(Listen(address, port_, 0));
  // The queue takes one more than was asked for; the others stay on their way.
  for (int i = 0; i < 4; ++i) {
    descriptors_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connect(descriptors_.back(), Bare(*SocketAddress::Parse(address, port_)), sizeof(sockaddr_in));
  }
}

Blackhole::~Blackhole() {
  for (const int descriptor : descriptors_) {
    close(descriptor);
  }
}

}  // namespace kolvex_test
