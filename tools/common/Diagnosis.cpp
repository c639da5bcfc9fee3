#include "Diagnosis.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace kolvex_host {

namespace {

constexpr int kConnectMs = 1500;
constexpr int kReplyMs = 1500;

class Socket {
 public:
  explicit Socket(int descriptor) : descriptor_(descriptor) {}
  ~Socket() { close(descriptor_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int Get() const { return descriptor_; }
  bool WaitFor(short events, int milliseconds) const {
    pollfd wanted{descriptor_, events, 0};
    return poll(&wanted, 1, milliseconds) > 0;
  }

 private:
  int descriptor_;
};

/// 0, or the system's reason.
int Connect(const Socket& socket, const std::string& address, sarnevo::u16 port) {
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  if (!socket.WaitFor(POLLOUT, kConnectMs)) {
    return ETIMEDOUT;
  }
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

/// RFC 4648, section 4.
std::string Base64(const std::string& bytes) {
  constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    unsigned word = 0;
    for (std::size_t i = at; i < at + 3; ++i) {
      word = word << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (unsigned i = 0; i < 4; ++i) {
      text += at + i <= bytes.size() ? kDigits[word >> (18 - 6 * i) & 63U] : '=';
    }
  }
  return text;
}

/// The beginning of the answer, as far as it comes in one piece; empty for silence.
std::string AskForFirstPage(const Socket& socket, const std::string& address, const Login& login) {
  const std::string request = "GET / HTTP/1.0\r\nHost: " + address + "\r\nAuthorization: Basic " +
                              Base64(login.user + ":" + login.password) + "\r\n\r\n";
  std::array<char, 64> buffer{};
  if (send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL) < 0 ||
      !socket.WaitFor(POLLIN, kReplyMs)) {
    return {};
  }
  const ssize_t count = recv(socket.Get(), buffer.data(), buffer.size(), 0);
  return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

}  // namespace

Failure WrongLogin(const std::string& place) {
  return {ExitCode::Login, "The camera at " + place +
                               " wants another user name or password: set KOLVEX_USER and KOLVEX_PASSWORD, or "
                               "give --credentials."};
}

Failure WhyNoCamera(const std::string& address, sarnevo::u16 port, const Login& login) {
  const std::string place = address + ":" + std::to_string(port);
  const Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (const int error = Connect(socket, address, port); error != 0) {
    return {ExitCode::Camera, "Nobody answers at " + place + ": " + std::strerror(error) + "."};
  }
  const std::string answer = AskForFirstPage(socket, address, login);
  if (answer.empty()) {
    return {ExitCode::Camera, "What stands at " + place + " takes connections, but doesn't answer."};
  }
  const std::string status = answer.substr(0, 5) == "HTTP/" ? answer.substr(0, 12).substr(9) : "";
  if (status == "401" || status == "403") {
    return WrongLogin(place);
  }
  return {ExitCode::Camera, "What answers at " + place + " is no camera of this family."};
}

std::string ResolveAddress(const std::string& name) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int error = getaddrinfo(name.c_str(), nullptr, &hints, &list); error != 0) {
    throw Failure(ExitCode::Camera, "There is no address for \"" + name + "\": " + gai_strerror(error) + ".");
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  std::array<char, INET_ADDRSTRLEN> text{};
  const auto* const found = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
  inet_ntop(AF_INET, &found->sin_addr, text.data(), text.size());
  return text.data();
}

}  // namespace kolvex_host
