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
      : interrupt_(sarnevo::own_thread::InterruptToken(), Cancel(request)) {}

 private:
  struct Cancel {
    // First, since an interrupt that has come already cancels as soon as the callback is there.
    explicit Cancel(HttpRequest& whose) noexcept : request(whose) { request.Resume(); }
    void operator()() const noexcept { request.Cancel(); }

    HttpRequest& request;
  };

  std::stop_callback<Cancel> interrupt_;
};

}  // namespace Web
