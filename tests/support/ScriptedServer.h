#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sarnevo::test {

/// A TCP server on a loopback address that plays a script: one list of steps for each connection, in the order
/// in which they come, each connection closed at the end of its list. Serves HTTP and RTSP alike. Ends with
/// its object, whatever step it is in.
class ScriptedServer {
 public:
  struct Step {
    enum class Kind { ReadRequest, Send, Pause, ReadToEnd, Reset } kind;
    std::string bytes{};
    std::size_t piece = 0;  // bytes per send; 0 for all at once
    std::chrono::milliseconds pause{0};
  };
  using Connection = std::vector<Step>;

  /// Reads up to the blank line that ends a request.
  static Step ReadRequest() { return {Step::Kind::ReadRequest}; }
  static Step Send(std::string bytes) { return {Step::Kind::Send, std::move(bytes)}; }
  /// Sends in pieces with a pause behind each.
  static Step Drip(std::string bytes, std::size_t piece, std::chrono::milliseconds pause) {
    return {Step::Kind::Send, std::move(bytes), piece, pause};
  }
  static Step Pause(std::chrono::milliseconds pause) { return {Step::Kind::Pause, {}, 0, pause}; }
  /// Reads until the client closes.
  static Step ReadToEnd() { return {Step::Kind::ReadToEnd}; }
  /// Closes with a reset instead of an end.
  static Step Reset() { return {Step::Kind::Reset}; }

  /// @param port  0 lets the system choose one.
  explicit ScriptedServer(std::vector<Connection> script, std::uint16_t port = 0,
                          const char* address = "127.0.0.1")
      : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    inet_pton(AF_INET, address, &local.sin_addr);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    socklen_t size = sizeof(local);
    if (bind(listener_, reinterpret_cast<sockaddr*>(&local), size) != 0 || listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
      throw std::runtime_error(std::string("scripted server: ") + std::strerror(errno));
    }
    port_ = ntohs(local.sin_port);
    thread_ = std::thread([this, script = std::move(script)] { Run(script); });
  }

  ~ScriptedServer() {
    Stop();
    close(listener_);
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::uint16_t Port() const { return port_; }

  /// All bytes of all requests so far, in order.
  std::string Requests() const {
    const std::lock_guard guard(lock_);
    return requests_;
  }

  /// Waits until @p bytes of requests have come.
  std::string WaitForRequests(std::size_t bytes, std::chrono::seconds limit = std::chrono::seconds{20}) const {
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, limit, [&] { return requests_.size() >= bytes; });
    return requests_;
  }

  /// Lets the script come to its end by itself and gives all requests. The clients have closed before.
  std::string Finish() {
    if (thread_.joinable()) {
      thread_.join();
    }
    return Requests();
  }

 private:
  void Run(const std::vector<Connection>& script) {
    for (const Connection& steps : script) {
      const int peer = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (peer < 0) {
        return;
      }
      const int on = 1;
      setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
      SetPeer(peer);
      std::all_of(steps.begin(), steps.end(), [&](const Step& step) { return Play(peer, step); });
      SetPeer(-1);
      close(peer);
    }
  }

  bool Play(int peer, const Step& step) {
    switch (step.kind) {
      case Step::Kind::ReadRequest:
        return Read(peer, true);
      case Step::Kind::ReadToEnd:
        return Read(peer, false);
      case Step::Kind::Send:
        return SendInPieces(peer, step);
      case Step::Kind::Pause:
        return Sleep(step.pause);
      case Step::Kind::Reset: {
        const linger now{1, 0};
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
        return false;
      }
    }
    return false;
  }

  bool Read(int peer, bool upToBlankLine) {
    std::string request;
    char byte = 0;
    while (recv(peer, &byte, 1, 0) == 1) {
      request += byte;
      const bool done = upToBlankLine && request.ends_with("\r\n\r\n");
      const std::lock_guard guard(lock_);
      requests_ += byte;
      changed_.notify_all();
      if (done) {
        return true;
      }
    }
    return !upToBlankLine;
  }

  bool SendInPieces(int peer, const Step& step) {
    const std::size_t piece = step.piece != 0 ? step.piece : step.bytes.size();
    for (std::size_t at = 0; at < step.bytes.size(); at += piece) {
      const std::size_t size = std::min(piece, step.bytes.size() - at);
      for (std::size_t sent = 0; sent < size;) {
        const ssize_t count = send(peer, step.bytes.data() + at + sent, size - sent, MSG_NOSIGNAL);
        if (count <= 0) {
          return false;
        }
        sent += static_cast<std::size_t>(count);
      }
      if (!Sleep(step.pause)) {
        return false;
      }
    }
    return true;
  }

  // False when the server is to end meanwhile.
  bool Sleep(std::chrono::milliseconds pause) {
    std::unique_lock guard(lock_);
    return pause.count() == 0 ? !stopping_ : !changed_.wait_for(guard, pause, [this] { return stopping_; });
  }

  void SetPeer(int peer) {
    const std::lock_guard guard(lock_);
    peer_ = peer;
    if (stopping_ && peer >= 0) {
      shutdown(peer, SHUT_RDWR);
    }
  }

  void Stop() {
    {
      const std::lock_guard guard(lock_);
      stopping_ = true;
      changed_.notify_all();
      shutdown(listener_, SHUT_RDWR);
      if (peer_ >= 0) {
        shutdown(peer_, SHUT_RDWR);
      }
    }
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  const int listener_;
  std::uint16_t port_ = 0;
  mutable std::mutex lock_;
  mutable std::condition_variable changed_;
  std::string requests_;   // under lock_
  int peer_ = -1;          // under lock_
  bool stopping_ = false;  // under lock_
  std::thread thread_;
};

}  // namespace sarnevo::test
