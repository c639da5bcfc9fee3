#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "http/HttpConnection.h"
#include "http/HttpError.h"
#include "http/HttpTarget.h"
#include "kolvex/Types.h"

namespace Web {

/// How the calling thread's latest operation on any HttpRequest ended. LoginFailure also after a Send that gave
/// true with status 401, so that wrong credentials can be distinguished from other failures.
HttpError LastHttpError() noexcept;

/// The system's only HTTP client: one camera, one user, one request at a time.
///
/// A new request closes the one before it. Used from one thread at a time; only Cancel may come from others. The body of
/// a reply can be read until the next Send.
///
/// Goes straight to the server: no proxy, no cache, no cookies, no file or environment variable is looked at.
/// Credentials (RFC 7617) go out with the first request and never to another port. Redirects are followed
/// only over plain http and only to the same host. Chunked bodies (RFC 9112, 7.1) come out plain; compressed ones come
/// out as they are. However long a body is, little of it is held here. A request whose body has ended holds no
/// descriptor, unless its connection is kept; one whose body isn't read holds it until the next Send or a Cancel.
class HttpRequest {
 public:
  /// Most redirects that are followed, one after the other.
  static constexpr int kMaxRedirects = 10;

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
  bool SetPort(sarnevo::u16 port) {
    port_ = port;
    return true;
  }
  bool SetUserName(const char* userName);
  bool SetPassword(const char* password);
  const char* GetHost() const { return host_.c_str(); }
  sarnevo::u16 GetPort() const { return port_; }

  /// Sends a request and waits for the reply's head. True with any status: see GetStatusCode. False when
  /// nothing usable came; the status code is then that of an earlier reply.
  /// @param path                path and query, with or without a leading "/"
  /// @param disableQueryEscape  the query goes out as it is
  bool Send(const char* method, const char* path, bool disableQueryEscape);
  sarnevo::u32 GetStatusCode() const { return statusCode_; }

  /// Waits for the next piece of the body. The bytes that can be read now; 0 at the end and on failure.
  sarnevo::u32 GetDataAvailable();
  /// Waits for the next piece of the body and reads up to @p size bytes of it, perhaps fewer than are still
  /// to come. True with 0 bytes: the end of the body. False when the connection broke or timed out.
  bool Read(void* buffer, sarnevo::u32 size, sarnevo::u32* bytesRead);

  /// Ends each request after @p milliseconds, however busy it is; 0, at first, sets no limit. For owners
  /// that must come to an end with a camera that drips. Applies from the next Send on.
  void SetTimeLimit(sarnevo::u32 milliseconds) { timeLimit_ = milliseconds; }

  /// Lets the camera keep the connection for the next request, which saves most of what a request costs. For
  /// owners that come again and again: the object then holds descriptors in between, and one of the camera's
  /// few places. Called before the first Send, if at all. Ends by itself after a body whose end didn't come in time: that
  /// camera may only know one end, the connection's.
  void KeepConnection(bool keep) { connection_.Keep(keep); }

  /// Closes the request in progress, and a kept connection: the operation under way on the owner's thread fails at
  /// once, and so does each later one until Resume. Any thread, while the object lives.
  void Cancel() noexcept;
  /// Lets requests through again after Cancel. What it closed stays closed.
  void Resume() noexcept { connection_.Resume(); }

 private:
  // One operation of the owner's. What can still throw in it is a lack of memory.
  template <typename Step>
  bool Run(Step step) noexcept;
  HttpError Follow(std::string_view method, std::string_view path, bool escapes);
  void Write(std::string_view method, const HttpTarget& target);
  void NoteHead();

  // Guards inUse_, and connection_ between operations. Never held while anything is waited for.
  std::mutex lock_;
  bool inUse_ = false;  // the owner's thread is in an operation
  HttpConnection connection_;

  // The owner's thread only.
  [[maybe_unused]] const sarnevo::u32 maxConnections_;
  [[maybe_unused]] const sarnevo::u32 codePage_;
  std::optional<HttpTarget> server_;  // from the first Send on; the path is empty
  std::string userName_;
  std::string password_;  // wiped on every change and at the end
  std::string host_;
  sarnevo::u16 port_ = kHttpPort;
  std::string text_;  // of the request that goes out; wiped after it
  sarnevo::u32 statusCode_ = 0;
  sarnevo::u32 contentLength_ = 0;  // of the last reply that had one that fits
  sarnevo::u32 timeLimit_ = 0;
};

}  // namespace Web
