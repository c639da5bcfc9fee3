#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "web/Http.h"
#include "web/Listen.h"
#include "web/Login.h"

namespace kolvex_console {

class Connection;
class Stream;

/// What one client may take, and all together.
struct Limits {
  std::size_t seats = 240;      ///< connections
  std::size_t streams = 128;    ///< of them, those that are streams
  std::uint32_t head = 8192;    ///< bytes of a request's line and fields
  std::uint64_t body = 65'536;  ///< bytes of a request's body
  std::chrono::milliseconds request{
      15'000};                              ///< from the connection, or the reply before, to the request's end
  std::chrono::milliseconds reply{30'000};  ///< to write a reply
  std::chrono::milliseconds stall{20'000};  ///< a stream that takes nothing for so long is ended
  std::chrono::milliseconds tick{250};      ///< how often the server looks at times
};

struct ServerOptions {
  std::set<std::string> names;     ///< host names beside addresses and localhost, lower case
  std::optional<LoginFile> login;  ///< asked of every request, wherever it comes from
  Limits limits;
};

/// The HTTP server: connections, their limits and times, the gate, replies and streams. It knows nothing of
/// cameras.
///
/// All of it runs on the thread that calls Run. When all seats are taken, the connection that has waited longest
/// without a whole request loses its seat to the new one: who says nothing keeps nobody out.
class Server {
 public:
  Server(std::vector<Listening> sockets, ServerOptions options, Doors doors);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Serves until Stop. @p tick runs every Limits::tick on this thread.
  void Run(const std::function<void()>& tick = {});
  /// Any thread. Ends all connections.
  void Stop();
  /// Any thread, cheap: the streams may have something new.
  void Wake();
  /// Runs @p work on the server's thread. Any thread.
  void Post(std::function<void()> work);
  /// Streams that are open. Any thread.
  std::size_t Streams() const { return streamCount_.load(std::memory_order_relaxed); }

 private:
  friend class Connection;
  friend class Stream;
  using Acceptor = boost::asio::ip::tcp::acceptor;

  void Accept(Acceptor& acceptor);
  void Admit(boost::asio::ip::tcp::socket socket);
  void Tick();
  void PumpAll();

  const ServerOptions options_;
  const Doors doors_;
  std::function<void()> tick_;
  std::size_t seats_ = 0;           // taken, streams included
  std::list<Connection*> waiting_;  // those without a whole request, the longest wait first
  std::set<std::shared_ptr<Stream>> streams_;
  std::atomic<std::size_t> streamCount_{0};  // for others; a moment late does no harm
  // Set by whoever has news, cleared by the server before it looks: one look serves any number of them. Both are
  // exchanges, so that the look sees what came before the call that found it set.
  std::atomic<bool> woken_{false};
  // What waits in it holds connections, which look at all above when they go.
  boost::asio::io_context io_{1};
  std::unique_ptr<LoginCheck> login_;  // null: nobody is asked
  boost::asio::steady_timer timer_{io_};
  std::list<Acceptor> acceptors_;
};

}  // namespace kolvex_console
