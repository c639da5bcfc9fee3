#pragma once

#include <stop_token>

#include "http/HttpRequest.h"
#include "threads/StoppableThread.h"

namespace Web {

/// While it lives, an interrupt of the calling thread (threads/StoppableThread.h) breaks a request off, and so does one
/// that has come already.
class RequestInterrupt {
 public:
  /// @param request  may have been broken off by the end of an earlier thread.
  explicit RequestInterrupt(HttpRequest& request)
      : interrupt_((request.Resume(), sarnevo::own_thread::InterruptToken()), Abort{request}) {}

 private:
  struct Abort {
    HttpRequest& request;
    void operator()() const noexcept { request.Abort(); }
  };

  std::stop_callback<Abort> interrupt_;
};

}  // namespace Web
