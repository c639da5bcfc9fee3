#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "support/ScriptedServer.h"

namespace kolvex_test {

/// Lines that any thread adds, compared as one text.
class Lines {
 public:
  void Add(const std::string& line) {
    const std::lock_guard guard(lock_);
    text_ += line + "\n";
    ++count_;
    changed_.notify_all();
  }
  std::string Text() const {
    const std::lock_guard guard(lock_);
    return text_;
  }
  std::size_t Count() const {
    const std::lock_guard guard(lock_);
    return count_;
  }
  /// Waits for that many lines and gives what is there then, or after the limit.
  std::string WaitFor(std::size_t count) const {
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, std::chrono::seconds{20}, [&] { return count_ >= count; });
    return text_;
  }
  /// What was added up to now, which is then forgotten.
  std::string Take() {
    const std::lock_guard guard(lock_);
    count_ = 0;
    return std::exchange(text_, {});
  }

 private:
  mutable std::mutex lock_;
  mutable std::condition_variable changed_;
  std::string text_;
  std::size_t count_ = 0;
};

/// A group 1 camera as the PTZ side sees it: tells its serial protocol and takes what is written to its
/// serial port.
class SerialCamera {
 public:
  using Connection = ScriptedServer::Connection;
  /// Answers a request, told as its line in Requests().
  using Answer = std::function<void(Connection&, const std::string& request)>;

  static void Ok(Connection& connection, const std::string&) {
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  }
  static void Refuse(Connection& connection, const std::string&) { connection.Reset(); }
  static void Hang(Connection& connection, const std::string&) { connection.WaitForEnd(); }

  explicit SerialCamera(const std::string& protocol = "0")
      : comportReply_("HTTP/1.1 200 OK\r\n\r\nserial_device=" + protocol + "\r\n"),
        server_([this](Connection& connection) { Serve(connection); }) {}

  std::uint16_t Port() const { return server_.Port(); }
  void SetComportReply(const std::string& reply) {
    const std::lock_guard guard(lock_);
    comportReply_ = reply;
  }
  void SetAnswer(Answer answer) {
    const std::lock_guard guard(lock_);
    answer_ = std::move(answer);
  }

  /// A line for each request: what was written to the serial port, else the whole request line.
  Lines& Requests() { return requests_; }
  std::string LastHead() const {
    const std::lock_guard guard(lock_);
    return lastHead_;
  }

 private:
  void Serve(Connection& connection) {
    const std::string head = connection.ReadHead();
    const std::string line = head.substr(0, head.find("\r\n"));
    std::string comportReply;
    Answer answer;
    {
      const std::lock_guard guard(lock_);
      lastHead_ = head;
      comportReply = comportReply_;
      answer = answer_;
    }
    const std::string prefix = "GET /serial.cgi?action=apply&port=2&write=";
    const std::string suffix = " HTTP/1.1";
    const bool write = line.starts_with(prefix) && line.ends_with(suffix);
    const std::string request =
        write ? line.substr(prefix.size(), line.size() - prefix.size() - suffix.size()) : line;
    requests_.Add(request);
    if (line.starts_with("GET /comport.cgi")) {
      connection.Send(comportReply);
    } else {
      answer(connection, request);
    }
  }

  mutable std::mutex lock_;
  std::string comportReply_;  // under lock_
  Answer answer_ = Ok;        // under lock_
  std::string lastHead_;      // under lock_
  Lines requests_;
  ScriptedServer server_;
};

}  // namespace kolvex_test
