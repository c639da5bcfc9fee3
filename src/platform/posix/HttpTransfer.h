#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/HttpTransport.h"
#include "platform/posix/HttpUrl.h"

namespace sarnevo::platform::posix {

/// Takes what a transfer brings, on the thread that runs it.
class HttpSink {
 public:
  enum class Answer {
    Taken,
    Later,    ///< not now, give it again after CurlTransfer's Resume; only to a transfer that has one
    Refused,  ///< ends the transfer
  };

  /// One line of a reply's head, its end included. False refuses the reply.
  virtual bool OnHeaderLine(std::string_view line) noexcept = 0;
  /// A piece of the body.
  virtual Answer OnBody(std::string_view piece) noexcept = 0;

 protected:
  ~HttpSink() = default;
};

/// A request, moved on by its owner's thread: run, wait, run again.
class HttpTransfer {
 public:
  /// Begins a request, in place of the one before. False when memory or descriptors are short.
  virtual bool Begin(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials) = 0;
  /// Does what can be done without waiting. Nothing while the request goes on, else how it ended.
  virtual std::optional<HttpError> Run() noexcept = 0;
  /// Waits until Run has something to do, for up to @p timeout, or until Wake. True when bytes came, or went,
  /// or the connection stands.
  virtual bool Wait(Milliseconds timeout) noexcept = 0;
  /// Status code of the reply whose head is coming in.
  virtual std::uint32_t Status() const noexcept = 0;
  /// Ends the wait under way, or else the next, for an owner that is to give the request up. Any thread, while the
  /// object lives.
  virtual void Wake() noexcept = 0;

 protected:
  ~HttpTransfer() = default;
};

}  // namespace sarnevo::platform::posix
