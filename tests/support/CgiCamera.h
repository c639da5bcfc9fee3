#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "support/HostLog.h"
#include "support/ScriptedServer.h"

namespace kolvex_test {

/// Whole HTTP replies by request target.
using CgiReplies = std::map<std::string, std::string>;

inline std::string Reply(int status, const std::string& body) {
  return "HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

inline CgiReplies Group1Replies() {
  return {
      {"/time.cgi?action=retrieve",
       Reply(200, "RET=200&METHOD=get\r\nServerDate=2024/05/06&ServerTime=07:08:09&timezone=0\r\n")},
      {"/comport.cgi?action=retrieve", Reply(200, "ret=200&port=2&serial_device=1&baud=9600\r\n")},
      {"/multimedia.cgi?action=retrieve", Reply(200, "ret=200&mode=mjpeg&aformat=g711\r\n")},
      {"/gpio.cgi?action=retrieve", Reply(200, "ret=200&gpio1=0\r\ngpio2=0\r\nrelay1=0\r\n")},
      {"/channel.cgi?action=retrieve&ch_id=all", Reply(200, "ret=200&ch_id=0\r\n")},
      {"/network.cgi?action=retrieve",
       Reply(200, "ret=200&DHCP=0\r\nHWADDR0=00:11:22:aa:BB:cc\r\nIPADDR0=1.2.3.4")},
  };
}

inline CgiReplies Group2Replies(const std::string& cameraType) {
  return {
      {"/GetTime.cgi", Reply(200, "<html><body>2024/05/06 07:08:09</body></html>")},
      {"/GetMAC.cgi", Reply(200, "MAC=001122334455<br>")},
      {"/GetCameraType.cgi", Reply(200, "<html><body>CameraType=" + cameraType + "<br></body></html>")},
  };
}

/// What a request asks for.
inline std::string Target(const std::string& head) {
  const std::size_t begin = head.find(' ') + 1;
  return head.substr(begin, head.find(' ', begin) - begin);
}

/// A camera's HTTP side: answers each request as the test says, and closes.
class CgiCamera {
 public:
  using Connection = ScriptedServer::Connection;
  using Answer = std::function<void(Connection&, const std::string& head)>;

  explicit CgiCamera(Answer answer) : answer_(std::move(answer)) {}
  /// The same to whatever is asked.
  explicit CgiCamera(std::string reply)
      : answer_([reply = std::move(reply)](Connection& connection, auto&) { connection.Send(reply); }) {}
  /// 404 to what isn't there.
  explicit CgiCamera(CgiReplies replies)
      : answer_([replies = std::move(replies)](Connection& connection, const std::string& head) {
          const auto reply = replies.find(Target(head));
          connection.Send(reply != replies.end() ? reply->second : Reply(404, "no such CGI"));
        }) {}

  std::uint16_t Port() const { return server_.Port(); }
  void SetAnswer(Answer answer) {
    const std::lock_guard guard(lock_);
    answer_ = std::move(answer);
  }
  /// One a line, in the order in which they came.
  std::string Targets() const {
    std::string targets;
    for (const std::string& head : heads.Lines()) {
      targets += Target(head) + "\n";
    }
    return targets;
  }

  HostLog heads;  ///< of the requests

 private:
  void Serve(Connection& connection) {
    const std::string head = connection.ReadHead();
    std::unique_lock guard(lock_);
    const Answer answer = answer_;
    guard.unlock();
    heads.Add(head);
    answer(connection, head);
  }

  std::mutex lock_;
  Answer answer_;  // under lock_
  ScriptedServer server_{[this](Connection& connection) { Serve(connection); }};
};

}  // namespace kolvex_test
