#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "CameraConfig.h"
#include "CameraTalk.h"
#include "Credentials.h"
#include "Failure.h"

namespace kolvex_host {

/// Why a camera gives no answer or no picture.
struct Reason {
  enum class Cause {
    Nobody,          ///< no connection to its address
    Refused,         ///< the machine is there, nothing listens at the port
    Silent,          ///< takes connections and says nothing
    Busy,            ///< has no time for a request
    WrongLogin,      ///< wants another user name or password
    OtherLogin,      ///< wants a kind of login that no camera of the family wants
    NotOfFamily,     ///< a router, another web server, a camera of another make
    WrongGroup,      ///< of the other firmware group than its record says
    RtspNobody,      ///< its RTSP port takes no connection, or stays silent
    RtspRefused,     ///< it refuses to set up a stream
    OtherCodec,      ///< it streams another codec than asked
    PortsTaken,      ///< this machine has no free port for a stream
    PacketsBlocked,  ///< it streams, and nothing arrives
    Unusable,        ///< packets arrive, and no good picture can be made of them
  };

  Cause cause = Cause::Unusable;
  ExitCode exit = ExitCode::NoFrames;  ///< for a program that was to get pictures
  std::string what;                    ///< without an end mark
  std::string advice;                  ///< what to do; without an end mark

  /// For programs, such as "wrong-login".
  const char* Name() const;
  /// Waiting doesn't cure it: another password, address, group or codec is needed.
  bool IsLasting() const {
    return cause == Cause::WrongLogin || cause == Cause::OtherLogin || cause == Cause::NotOfFamily ||
           cause == Cause::WrongGroup || cause == Cause::OtherCodec;
  }
  /// One sentence for people.
  std::string Sentence() const { return what + ": " + advice + "."; }
};

/// Looks for itself why the driver gets nothing from a camera: the library, by contract, reports only that
/// nothing comes. A person wants to know whether cable, password, address or firewall is to blame.
///
/// The camera is asked the way the driver asks it, nothing is configured or switched, and the one stream that
/// WhyNoPicture may start ends with it. Each method may run on a thread of its own.
class Diagnosis {
 public:
  /// The record's address, port, codec and group are used; the group may be missing.
  Diagnosis(const CameraConfig& camera, Login login);

  /// Over HTTP alone. Nothing when a camera of the family, and of the record's group, answers and takes the login.
  /// Up to 6 seconds; sooner, and without meaning, after @p stop.
  std::optional<Reason> WhyNoAnswer(std::stop_token stop = {}) const;

  /// What the driver's user has seen.
  struct Seen {
    sarnevo::u64 frames = 0;  ///< delivered by the driver
  };
  /// For a stream from which no good picture came: over HTTP, over RTSP, and at a local port whether packets
  /// arrive. Usually 2 seconds, up to 12 with a camera that is slow at everything.
  Reason WhyNoPicture(const Seen& seen, std::stop_token stop = {}) const;

 private:
  std::optional<Reason> WhyNoStream(const Seen& seen, std::stop_token stop) const;

  const Place place_;
  const std::string group_;
  const sarnevo::Codec codec_;
  const Login login_;
};

}  // namespace kolvex_host
