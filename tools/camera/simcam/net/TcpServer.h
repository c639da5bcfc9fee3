#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simcam/net/Connection.h"

struct evconnlistener;

namespace simcam {

/// Listens on one address and port and owns the connections that came from it. Loop thread only.
class TcpServer {
 public:
  using MakeHandler = std::function<std::unique_ptr<ConnectionHandler>(Connection&)>;

  TcpServer(EventLoop& loop, MakeHandler makeHandler);
  ~TcpServer();

  /// False, with the reason in a sentence, when the address can't be bound.
  bool Listen(const std::string& address, std::uint16_t port, std::string& error);
  /// New clients are refused from now on; open connections are left alone.
  void StopListening();
  bool listening() const { return listener_ != nullptr; }

  void DropConnections();

 private:
  void Accept(int socket, const sockaddr_in& peer);

  struct Free {
    void operator()(evconnlistener* listener) const;
  };
  EventLoop& loop_;
  const MakeHandler makeHandler_;
  std::unique_ptr<evconnlistener, Free> listener_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::vector<std::unique_ptr<Connection>> ended_;  // still on the stack somewhere; removed by the reaper
  Timer reaper_;
};

}  // namespace simcam
