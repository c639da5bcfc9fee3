#include "support/ScriptedServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kolvex_test {

namespace {

sockaddr_in Address(const char* address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  inet_pton(AF_INET, address, &result.sin_addr);
  return result;
}

int Listen(const char* address, std::uint16_t& port, int backlog) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in local = Address(address, port);
  socklen_t size = sizeof(local);
  if (bind(descriptor, reinterpret_cast<sockaddr*>(&local), size) != 0 || listen(descriptor, backlog) != 0 ||
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
    close(descriptor);
    throw std::runtime_error("the test server can't listen");
  }
  port = ntohs(local.sin_port);
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
  while (!bytes.empty()) {
    const ssize_t sent = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool ScriptedServer::Connection::Drip(std::string_view bytes, std::chrono::milliseconds pause) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!Send(bytes.substr(i, 1))) {
      return false;
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
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
    : script_(std::move(script)), port_(port) {
  listener_ = Listen(address, port_, 64);
  accepting_ = std::thread([this] { Accept(); });
}

void ScriptedServer::Accept() {
  for (;;) {
    const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) {
      return;
    }
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    auto connection = std::make_shared<Connection>(descriptor, count_++);
    {
      const std::lock_guard guard(lock_);
      open_.push_back(connection);
    }
    std::thread([this, connection = std::move(connection)]() mutable {
      script_(*connection);
      const std::lock_guard guard(lock_);
      std::erase(open_, connection);
      connection.reset();
      ended_.notify_all();
    }).detach();
  }
}

ScriptedServer::~ScriptedServer() {
  shutdown(listener_, SHUT_RDWR);
  accepting_.join();
  close(listener_);
  std::unique_lock guard(lock_);
  for (const auto& connection : open_) {
    connection->Shutdown();
  }
  ended_.wait(guard, [this] { return open_.empty(); });
}

HttpReplies::HttpReplies(std::function<std::string(const std::string&)> reply, const char* address)
    : reply_(std::move(reply)),
      server_(
          [this](ScriptedServer::Connection& connection) {
            const std::string head = connection.ReadHead();
            {
              const std::lock_guard guard(lock_);
              heads_.push_back(head);
            }
            connection.Send(reply_(head));
          },
          address) {}

std::vector<std::string> HttpReplies::Heads() const {
  const std::lock_guard guard(lock_);
  return heads_;
}

Blackhole::Blackhole(const char* address, std::uint16_t port) : port_(port) {
  descriptors_.push_back(Listen(address, port_, 0));
  // The queue takes one more than it is told; the others stay on their way.
  for (int i = 0; i < 4; ++i) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_in peer = Address(address, port_);
    static_cast<void>(connect(descriptor, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)));
    descriptors_.push_back(descriptor);
  }
}

Blackhole::~Blackhole() {
  for (const int descriptor : descriptors_) {
    close(descriptor);
  }
}

}  // namespace kolvex_test
