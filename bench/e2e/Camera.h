#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "e2e/Board.h"

namespace kolvex_bench {

/// Where cameras can be reached, and how.
struct CameraPorts {
  std::uint16_t cgi = 80;
  std::uint16_t rtsp = 554;       ///< 0: none
  bool keepsConnections = false;  ///< after a CGI request that allows it
};

/// Speaks just enough CGI and RTSP, as cameras of group 1 and on all their addresses, for a receiver to get its
/// streams: every CGI request gets the states of two inputs, SETUP names the port, PLAY starts, TEARDOWN or the end of
/// the connection stops.
class CameraControl {
 public:
  /// @param place    its targets are written as receivers ask, and its requests counted; outlives this object
  /// @param cameras  how many of them there are; a connection to any other is closed at once
  CameraControl(Place& place, int cameras, CameraPorts ports = {});
  /// Serves for ever, on the calling thread.
  /// @param absent  whether the cameras are gone at present; looked at now and then
  [[noreturn]] void Serve(const std::atomic<bool>& absent);

 private:
  struct Connection {
    int descriptor = -1;
    int camera = 0;
    bool rtsp = false;
    std::string received{};
  };

  void Listen();
  void Leave();
  void Accept(int listener, bool rtsp);
  bool Read(Connection& connection);
  bool Answer(Connection& connection, const std::string& request);
  std::string AnswerRtsp(Connection& connection, const std::string& request);

  Place& place_;
  const int cameras_;
  const CameraPorts ports_;
  int cgi_ = -1;
  int rtsp_ = -1;
  std::vector<Connection> connections_;
};

}  // namespace kolvex_bench
