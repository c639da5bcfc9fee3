#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "e2e/Plan.h"

namespace kolvex_bench {

/// Where one camera sends its stream.
struct StreamTarget {
  std::atomic<bool> playing{false};
  sockaddr_in to{};  // written before playing is set
};

/// Speaks just enough CGI and RTSP, as cameras of group 1 and on all their addresses, for a receiver to get its
/// streams: every CGI request succeeds, SETUP tells the port, PLAY starts, TEARDOWN or the end of the connection
/// stops.
class CameraControl {
 public:
  explicit CameraControl(std::vector<StreamTarget>& targets);
  /// Serves for ever, on the calling thread.
  [[noreturn]] void Serve();

 private:
  struct Connection {
    int descriptor = -1;
    int camera = 0;
    bool rtsp = false;
    std::string received{};
  };

  void Accept(int listener, bool rtsp);
  bool Read(Connection& connection);
  bool Answer(Connection& connection, const std::string& request);
  std::string AnswerRtsp(Connection& connection, const std::string& request);

  std::vector<StreamTarget>& targets_;
  const int cgi_;
  const int rtsp_;
  std::vector<Connection> connections_;
};

}  // namespace kolvex_bench
