#pragma once

#include <utility>  // before Asio, which forgets it

#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>

#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <string>

#include "web/Server.h"

namespace kolvex_console {

/// One viewer's stream: writes what its outlet gives whenever the connection has room, straight from the pictures'
/// own memory. While there is no room it holds no picture but the one that it has begun to send.
///
/// On the server's thread. Has a seat of the server's until it ends.
class Stream : public std::enable_shared_from_this<Stream> {
 public:
  Stream(Server& server, boost::asio::ip::tcp::socket socket, std::string head, std::shared_ptr<Outlet> outlet);
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void Begin();
  /// The outlet may have something new.
  void Pump();
  /// Ends the stream if its viewer has taken nothing for too long.
  void EndIfStalled(std::chrono::steady_clock::time_point now);
  void End();

 private:
  /// Takes from the outlet what fits into one write.
  void Gather();
  /// False when the connection has no room, or has gone.
  bool Write();
  void Consume(std::size_t sent);
  void WaitForRoom();
  void WatchForEnd();

  Server& server_;
  boost::asio::ip::tcp::socket socket_;
  std::shared_ptr<Outlet> outlet_;  // null: the head is all
  std::deque<Unit> units_;          // to be sent, of the first one without what has gone
  std::size_t sent_ = 0;            // bytes of the first unit
  std::size_t gathered_ = 0;        // bytes of all units
  bool waits_ = false;              // for room
  bool ended_ = false;
  std::chrono::steady_clock::time_point progress_;
  std::array<char, 256> input_{};
};

}  // namespace kolvex_console
