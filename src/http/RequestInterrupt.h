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
      : interrupt_((request.Resume(), sarnevo::own_thread::InterruptToken()), Cancel{request}) {}

 private:
  struct Cancel {
    HttpRequest& request;
    void operator()() const noexcept { request.Cancel(); }
  };

  std::stop_callback<Cancel> interrupt_;
};

}  // namespace Web
