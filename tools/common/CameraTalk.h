#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "Credentials.h"
#include "Place.h"

namespace kolvex_host {

/// What came of one request that the program makes by itself, beside the driver.
struct Answer {
  enum class State {
    Answered,      ///< `status` says how
    Unreachable,   ///< no connection in time, or no way there
    Refused,       ///< the machine is there, but nothing listens
    Silent,        ///< a connection, but no whole answer
    OtherProtocol  ///< an answer that is no HTTP or RTSP
  };
  State state = State::Unreachable;
  long status = 0;
  std::string detail;     ///< for Unreachable: the system's reason
  std::string challenge;  ///< the WWW-Authenticate headers (RFC 7235), lower case
  std::string body;       ///< its first 64 kB
};

/// Speaks HTTP or RTSP with a camera to find out why the driver can't: a tool of diagnosis, never part of the way
/// that video takes. One request takes up to 3 seconds, half of them for the connection. One thread.
class CameraTalk {
 public:
  /// A request under way ends soon after @p stop.
  explicit CameraTalk(std::stop_token stop);
  ~CameraTalk();
  CameraTalk(const CameraTalk&) = delete;
  CameraTalk& operator=(const CameraTalk&) = delete;

  /// GET @p path, with the login as Basic credentials (RFC 7617), redirects not followed.
  Answer Get(const Place& place, const std::string& path, const Login& login);

  enum class Rtsp { Describe, Setup, Play, Teardown };
  /// One request of RFC 2326. All requests of an object are one conversation. @p uri is the request's;
  /// @p transport is for Setup only.
  Answer Ask(Rtsp method, const std::string& uri, const std::string& transport = {});

 private:
  struct Curl;
  std::unique_ptr<Curl> curl_;
};

}  // namespace kolvex_host
