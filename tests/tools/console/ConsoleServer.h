#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hub/Doors.h"
#include "hub/Site.h"
#include "web/Server.h"

namespace kolvex_test {

/// A camera without a driver: shows what a test says, and keeps what it was asked for.
class FakeCamera final : public kolvex_console::Camera {
 public:
  explicit FakeCamera(std::string name) : name_(std::move(name)) {}

  std::shared_ptr<kolvex_console::Feed> Video() const override { return feed_; }
  kolvex_console::StateText State() const override;
  nlohmann::json History() const override { return nlohmann::json::array(); }
  kolvex_console::CameraCounts Counts() const override { return counts; }
  void Rename(const std::string& name) override;
  kolvex_console::Reply Move(const std::string& movement, int speed) override;
  void SetOutput(unsigned output, bool high, Done done) override;
  void UsePosition(const std::string& action, const std::string& position, Done done) override;
  std::shared_ptr<const std::string> Thumbnail(const std::string&) const override { return nullptr; }
  void Simulate(const std::string& fault, Done done) override;

  /// A picture of @p bytes that came just now, or @p age ago. Gives what shows whether its memory is still held.
  std::weak_ptr<const void> Show(const std::string& bytes, std::chrono::milliseconds age = {});
  /// What it was asked for since the last call, a line each.
  std::string TakeTranscript();

  kolvex_console::CameraCounts counts;

 private:
  void Note(const std::string& line);

  const std::shared_ptr<kolvex_console::Feed> feed_ = std::make_shared<kolvex_console::Feed>();
  mutable std::mutex lock_;
  std::string name_;        // guarded by lock_
  std::string transcript_;  // guarded by lock_
};

/// A whole reply.
struct HttpReply {
  int status = 0;  ///< 0: the server closed without a word
  std::string head;
  std::string body;
};

/// A client's connection, with limits on every wait.
class Client {
 public:
  explicit Client(int port);
  /// Asks for @p path at once. @p receiveBuffer: bytes in the kernel, 0 for the usual ones.
  Client(int port, const std::string& path, int receiveBuffer = 0);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool Send(const std::string& bytes) const;
  /// The next reply, of the length that its head gives. @p hasBody: false after HEAD.
  HttpReply Receive(bool hasBody = true);
  /// Reads until the text has come and gives all up to its end; what there is when it doesn't come.
  std::string ReadUntil(const std::string& text);
  std::string Read(std::size_t size);
  /// The server has closed the connection.
  bool Ends();

 private:
  bool Fill();

  int socket_;
  std::string buffer_;
};

/// A request on a connection of its own; @p fields end with a line break each.
HttpReply Get(int port, const std::string& path, const std::string& fields = "");
HttpReply Post(int port, const std::string& path, const std::string& body);

/// A server on a free port with a site of fake cameras, running until it goes.
class ConsoleServer {
 public:
  explicit ConsoleServer(kolvex_console::ServerOptions options = {});
  ~ConsoleServer();
  ConsoleServer(const ConsoleServer&) = delete;
  ConsoleServer& operator=(const ConsoleServer&) = delete;

  FakeCamera& Add(const std::string& name);
  void Show(FakeCamera& camera, const std::string& bytes) {
    camera.Show(bytes);
    site->Wake();
  }
  int Port() const { return port_; }
  kolvex_console::Server& Server() { return *server_; }
  HttpReply Get(const std::string& path, const std::string& fields = "") const {
    return kolvex_test::Get(port_, path, fields);
  }
  HttpReply Post(const std::string& path, const std::string& body) const {
    return kolvex_test::Post(port_, path, body);
  }

  std::shared_ptr<kolvex_console::Site> site;

 private:
  class NoKeeper;
  int port_ = 0;
  std::unique_ptr<kolvex_console::DoorTable> doors_;
  std::unique_ptr<kolvex_console::Server> server_;
  std::thread thread_;
};

}  // namespace kolvex_test
