#pragma once

#include <utility>  // before Asio, which forgets it

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include <array>
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "web/Server.h"

namespace kolvex_console {

/// One client's connection while it sends requests and gets whole replies, one after the other. A stream takes
/// the socket over. On the server's thread.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Server& server, boost::asio::ip::tcp::socket socket);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void ReadRequest();
  /// Loses its seat to another.
  void Drop();

 private:
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;
  using Message = boost::beast::http::response<boost::beast::http::string_body>;

  void OnRequest(const boost::beast::error_code& error);
  void EndRequestAfter(std::chrono::milliseconds limit);
  void Judge();
  void PassOn();
  /// Gives the answer back to this connection from any thread.
  Respond MakeRespond();
  void Deliver(Answer answer);
  void Send(Reply reply);
  void BeginStream(std::shared_ptr<Outlet> outlet);
  void LeaveWaiting();
  /// Reads away what the client still sends: closing at once would take the reply from it.
  void Linger();

  Server& server_;
  boost::beast::tcp_stream stream_;
  boost::beast::flat_buffer buffer_;
  std::optional<Parser> parser_;
  std::optional<Message> message_;                           // while it is written
  std::optional<std::list<Connection*>::iterator> waiting_;  // the place in the server's list
  // The stream's own limit would close the connection without a word.
  boost::asio::steady_timer requestLimit_;
  bool isLate_ = false;
  bool hasSeat_ = true;
  std::array<char, 4096> rest_{};
  std::size_t lingered_ = 0;  // bytes
};

}  // namespace kolvex_console
