#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include <string>

#include "simcam/base/EventLoop.h"
#include "simcam/device/Faults.h"

struct bufferevent;

namespace simcam {

class Connection;

/// What is spoken on a connection. Called on the loop's thread.
class ConnectionHandler {
 public:
  virtual ~ConnectionHandler() = default;
  virtual void OnBytes(std::string_view bytes) = 0;
};

/// One TCP connection of a client, and the only door for replies: here they are delayed, cut or dripped when
/// a fault says so. Belongs to its TcpServer, which removes it soon after its end. Loop thread only.
class Connection {
 public:
  Connection(EventLoop& loop, int socket, const sockaddr_in& peer, std::function<void(Connection*)> ended);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void SetHandler(std::unique_ptr<ConnectionHandler> handler) { handler_ = std::move(handler); }

  /// Sends the bytes, spoiled as the fault says, and then ends the connection if `closeAfter`. Replies keep
  /// their order; one that is still dripping takes the next along.
  void Reply(std::string bytes, const std::optional<ReplyFault>& fault, bool closeAfter);

  /// Ends the connection now. The object stays until the server removes it.
  void Close();

  const sockaddr_in& peer() const { return peer_; }

 private:
  void OnReadable();
  void Write(std::string_view bytes);
  void SendPiece();
  void Reset();
  void StartPieces(std::string bytes, std::size_t size, Microseconds pace);
  std::size_t unsent() const;

  EventLoop& loop_;
  bufferevent* stream_;  // owned; null after the end
  const sockaddr_in peer_;
  const std::function<void(Connection*)> ended_;
  std::unique_ptr<ConnectionHandler> handler_;
  Timer pieceTimer_;
  std::string waiting_;  // bytes that go out piece by piece
  std::size_t pieceSize_ = 0;
  Microseconds pace_{0};
  bool endless_ = false;
  bool mute_ = false;  // stalled for good: nothing goes out any more
  bool closeWhenSent_ = false;
  bool resetWhenSent_ = false;
};

}  // namespace simcam
