#pragma once

#include <map>
#include <string>
#include <vector>

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

/// Answers by target; 404 to what isn't there.
class CgiCamera : public HttpReplies {
 public:
  explicit CgiCamera(CgiReplies replies)
      : HttpReplies([replies = std::move(replies)](const std::string& head) {
          const auto reply = replies.find(Target(head));
          return reply != replies.end() ? reply->second : Reply(404, "no such CGI");
        }) {}

  /// One a line, in the order in which they came.
  std::string Targets() const {
    std::string targets;
    for (const std::string& head : Heads()) {
      targets += Target(head) + "\n";
    }
    return targets;
  }

 private:
  static std::string Target(const std::string& head) {
    const std::size_t begin = head.find(' ') + 1;
    return head.substr(begin, head.find(' ', begin) - begin);
  }
};

}  // namespace kolvex_test
