#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kolvex_test {

/// A TCP server on a loopback address that does to each connection what a script says, on a thread
/// per connection. Ends all connections when it is destroyed, wherever their scripts are.
class ScriptedServer {
 public:
  class Connection {
   public:
    explicit Connection(int descriptor, std::size_t number) : descriptor_(descriptor), number_(number) {}
    ~Connection();
    /// From 0, in the order of accepting.
    std::size_t Number() const { return number_; }
    /// Reads up to and with an empty line; what came so far when the client closes.
    std::string ReadHead();
    /// False when the client is gone.
    bool Send(std::string_view bytes);
    bool Drip(std::string_view bytes, std::chrono::milliseconds pause);
    /// Blocks until the client closes or the server ends.
    void WaitForEnd();
    /// Closes with a reset instead of an end.
    void Reset();
    /// From any thread: makes everything above fail.
    void Shutdown();

   private:
    const int descriptor_;
    const std::size_t number_;
  };
  using Script = std::function<void(Connection&)>;

  explicit ScriptedServer(Script script, const char* address = "127.0.0.1", std::uint16_t port = 0);
  ~ScriptedServer();

  std::uint16_t Port() const { return port_; }
  /// Connections accepted so far.
  std::size_t Count() const { return count_; }

 private:
  void Accept();

  const Script script_;
  std::uint16_t port_;
  const int listener_;
  std::atomic<std::size_t> count_{0};
  std::thread accepting_;
};

/// An address at which a connect neither succeeds nor fails: a listener whose queue is full.
class Blackhole {
 public:
  explicit Blackhole(const char* address = "127.0.0.1", std::uint16_t port = 0);
  ~Blackhole();
  std::uint16_t Port() const { return port_; }

 private:
  std::vector<int> descriptors_;
  std::uint16_t port_ = 0;
};

}  // namespace kolvex_test
