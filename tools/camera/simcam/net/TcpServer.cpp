#include "simcam/net/TcpServer.h"

#include <arpa/inet.h>
#include <event2/listener.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "simcam/base/Text.h"

namespace simcam {

void TcpServer::Free::operator()(evconnlistener* listener) const { evconnlistener_free(listener); }

TcpServer::TcpServer(EventLoop& loop, MakeHandler makeHandler)
    : loop_(loop), makeHandler_(std::move(makeHandler)), reaper_(loop, [this] { ended_.clear(); }) {}

TcpServer::~TcpServer() { DropConnections(); }

bool TcpServer::Listen(const std::string& address, std::uint16_t port, std::string& error) {
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
    error = Format("\"%s\" is no IPv4 address", address.c_str());
    return false;
  }
  constexpr int kBacklog = 128;
  listener_.reset(evconnlistener_new_bind(
      loop_.base(),
      [](evconnlistener*, evutil_socket_t socket, sockaddr* peer, int, void* self) {
        static_cast<TcpServer*>(self)->Accept(socket, *reinterpret_cast<const sockaddr_in*>(peer));
      },
      this, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_REUSEABLE, kBacklog,
      reinterpret_cast<const sockaddr*>(&local), sizeof local));
  if (listener_ == nullptr) {
    const int reason = errno;
    error = Format("can't listen on %s:%u: %s%s", address.c_str(), port, std::strerror(reason),
                   reason == EACCES ? " (ports below 1024 need root, or a network namespace of your own: "
                                      "unshare --user --map-root-user --net)"
                                    : "");
  }
  return listener_ != nullptr;
}

void TcpServer::StopListening() { listener_ = nullptr; }

void TcpServer::Accept(int socket, const sockaddr_in& peer) {
  auto connection = std::make_unique<Connection>(loop_, socket, peer, [this](Connection* gone) {
    const auto at = std::find_if(connections_.begin(), connections_.end(),
                                 [gone](const auto& candidate) { return candidate.get() == gone; });
    if (at != connections_.end()) {
      ended_.push_back(std::move(*at));
      connections_.erase(at);
      reaper_.StartOnce(Microseconds{0});
    }
  });
  Connection& accepted = *connections_.emplace_back(std::move(connection));
  accepted.SetHandler(makeHandler_(accepted));  // which may end it
}

// The call may come out of one of the connections, when the camera is told to reboot over its own port.
void TcpServer::DropConnections() {
  for (std::unique_ptr<Connection>& connection : std::exchange(connections_, {})) {
    connection->Close();
    ended_.push_back(std::move(connection));
  }
  reaper_.StartOnce(Microseconds{0});
}

}  // namespace simcam
