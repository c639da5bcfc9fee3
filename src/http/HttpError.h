#pragma once

#include "kolvex/Types.h"

namespace Web {

/// How an operation of the HTTP client ended.
enum class HttpError : sarnevo::u8 {
  None,
  Cancelled,        ///< closed from outside, or nothing was sent
  InvalidRequest,   ///< host, method or buffer can't be used
  NameNotResolved,  ///< the host's name is unknown
  CannotConnect,    ///< refused, unreachable
  TimedOut,  ///< look-up and connect, sending or one receive took too long, or the request's limit is reached
  ConnectionBroken,  ///< reset, or ended before the reply was whole
  InvalidReply,      ///< not HTTP/1.x, or a length that can't be right
  ReplyTooLarge,     ///< more header bytes than are taken
  RedirectRefused,   ///< too many redirects, or one that leaves plain http or the host
  LoginFailure,      ///< the server wants other credentials (status 401, RFC 9110, 15.5.2)
  OutOfResources,    ///< memory, threads or descriptors
};

}  // namespace Web
