#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kolvex/Types.h"
#include "platform/CriticalSection.h"
#include "platform/HttpTransport.h"

namespace Web {

/// How the calling thread's latest operation on any HttpRequest ended. LoginFailure after a Send that gave
/// true with status 401 as well, so that wrong credentials can be told from other failures.
sarnevo::platform::HttpError LastHttpError() noexcept;

/// The system's only HTTP client: one camera, one user, one request at a time.
///
/// A new request closes the one before it. Used from one thread at a time; only Cancel, Abort and Resume may
/// come from others. Costs a few hundred bytes until Send. The body of a reply can be read until the next
/// Send.
class HttpRequest {
 public:
  /// @param timeout         milliseconds for the connect, for sending and for each receive on its own, so that
  ///                        a reply that keeps dripping doesn't time out
  /// @param maxConnections  connections to one server
  /// @param codePage        of the texts; 0 leaves the system's own
  HttpRequest(sarnevo::u32 timeout, sarnevo::u32 maxConnections, sarnevo::u32 codePage);
  /// Null texts count as empty.
  HttpRequest(const char* host, sarnevo::u16 port, const char* userName, const char* password,
              sarnevo::u32 timeout, sarnevo::u32 maxConnections, sarnevo::u32 codePage);
  virtual ~HttpRequest();
  HttpRequest(const HttpRequest&) = delete;
  HttpRequest& operator=(const HttpRequest&) = delete;

  /// Always true; null counts as empty. Host and port are fixed from the first Send on: a later change
  /// shows in GetHost and GetPort but requests go on to the first server.
  bool SetHost(const char* host);
  bool SetPort(sarnevo::u16 port);
  bool SetUserName(const char* userName);
  bool SetPassword(const char* password);
  const char* GetHost() const;
  sarnevo::u16 GetPort() const;

  /// Sends a request and waits for the reply's head. True with any status: see GetStatusCode. False when
  /// nothing usable came; the status code is then that of an earlier reply.
  /// @param path                path and query, with or without a leading "/"
  /// @param disableQueryEscape  the query goes out as it is
  bool Send(const char* method, const char* path, bool disableQueryEscape);
  sarnevo::u32 GetStatusCode() const;

  /// Waits for the next piece of the body. The bytes that can be read now; 0 at the end and on failure.
  sarnevo::u32 GetDataAvailable();
  /// Waits for the next piece of the body and reads up to @p size bytes of it, perhaps fewer than are still
  /// to come. True with 0 bytes: the end of the body. False when the connection broke or timed out.
  bool Read(void* buffer, sarnevo::u32 size, sarnevo::u32* bytesRead);

  /// Ends each request after @p milliseconds, however busy it is; 0, at first, sets no limit. For owners
  /// that must come to an end with a camera that drips. Applies from the next Send on.
  void SetTimeLimit(sarnevo::u32 milliseconds);

  /// Lets the camera keep the connection for the next request, which saves most of what a request costs. For
  /// owners that come again and again: the object then holds descriptors in between, and one of the camera's
  /// few places. Applies from the next Send on; not at first.
  void KeepConnection(bool keep);

  /// Closes the request in progress, and a kept connection: the operation under way on the owner's thread
  /// fails at once, and so does each later GetDataAvailable and Read until the next Send. A Send that hasn't
  /// opened its request yet isn't touched; an owner that is stopping wants Abort. Any thread, while the object
  /// lives.
  void Cancel() noexcept;
  /// Cancel for good: each later Send fails at once too, until Resume. Any thread, while the object lives.
  void Abort() noexcept;
  /// Lets requests through again after Abort.
  void Resume() noexcept;

 private:
  using Exchange = sarnevo::platform::HttpExchange;

  std::shared_ptr<Exchange> OpenRequest();
  std::shared_ptr<Exchange> CurrentRequest() noexcept;
  std::shared_ptr<Exchange> TakeRequest() noexcept;

  // Guards request_ and aborted_. Held for the pointer only, never during an operation on the request.
  sarnevo::platform::CriticalSection lock_;
  const sarnevo::platform::HttpSettings session_;
  std::optional<sarnevo::platform::HttpServer> connection_;  // from the first Send on
  sarnevo::platform::HttpKeeper keeper_;                     // empty unless keepConnection_
  std::shared_ptr<Exchange> request_;                        // in front of keeper_ in the end
  bool aborted_ = false;

  // The owner's thread only.
  std::string userName_;
  std::string password_;  // wiped on every change and at the end
  std::string host_;
  sarnevo::u16 port_ = 80;
  sarnevo::u32 statusCode_ = 0;
  sarnevo::u32 contentLength_ = 0;  // of the last reply that had one that fits
  sarnevo::u32 timeLimit_ = 0;
  bool keepConnection_ = false;
};

}  // namespace Web
