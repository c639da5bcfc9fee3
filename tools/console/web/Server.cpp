#include <utility>  // before Asio, which forgets it

#include "web/Server.h"

#include <boost/asio/post.hpp>

#include "web/Connection.h"
#include "web/Stream.h"

namespace kolvex_console {

using boost::asio::ip::tcp;
using boost::system::error_code;

namespace {

/// After a failed accept, most likely for want of descriptors: at once again would be a busy loop.
constexpr std::chrono::milliseconds kAcceptPause{100};

}  // namespace

Server::Server(std::vector<Listening> sockets, ServerOptions options, Doors doors)
    : options_(std::move(options)), doors_(std::move(doors)) {
  if (options_.login) {
    login_ = std::make_unique<LoginCheck>(*options_.login);
  }
  for (const Listening& socket : sockets) {
    const bool six = socket.url.find('[') != std::string::npos;
    acceptors_.emplace_back(io_, six ? tcp::v6() : tcp::v4(), socket.descriptor);
  }
}

Server::~Server() = default;

void Server::Run(const std::function<void()>& tick) {
  tick_ = tick;
  for (Acceptor& acceptor : acceptors_) {
    Accept(acceptor);
  }
  Tick();
  io_.run();
  // The check's thread may still hold a connection; it ends before the connections do.
  login_.reset();
  // What the handlers hold goes while all that it refers to is there.
  for (const auto& stream : std::exchange(streams_, {})) {
    stream->End();
  }
}

void Server::Stop() { io_.stop(); }

void Server::Post(std::function<void()> work) { boost::asio::post(io_, std::move(work)); }

void Server::Wake() {
  if (!woken_.exchange(true, std::memory_order_acq_rel)) {
    boost::asio::post(io_, [this] {
      woken_.exchange(false, std::memory_order_acq_rel);
      PumpAll();
    });
  }
}

void Server::PumpAll() {
  // A stream may end in its turn, which takes it out of the set.
  for (auto at = streams_.begin(); at != streams_.end();) {
    const std::shared_ptr<Stream> stream = *at++;
    stream->Pump();
  }
}

void Server::Tick() {
  const auto now = std::chrono::steady_clock::now();
  for (auto at = streams_.begin(); at != streams_.end();) {
    const std::shared_ptr<Stream> stream = *at++;
    stream->EndIfStalled(now);
  }
  if (tick_) {
    tick_();
  }
  PumpAll();
  timer_.expires_after(options_.limits.tick);
  timer_.async_wait([this](const error_code& error) {
    if (!error) {
      Tick();
    }
  });
}

void Server::Accept(Acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](const error_code& error, tcp::socket socket) {
    if (!error) {
      Admit(std::move(socket));
      Accept(acceptor);
      return;
    }
    const auto pause = std::make_shared<boost::asio::steady_timer>(io_, kAcceptPause);
    pause->async_wait([this, &acceptor, pause](const error_code&) { Accept(acceptor); });
  });
}

void Server::Admit(tcp::socket socket) {
  if (seats_ >= options_.limits.seats) {
    if (waiting_.empty()) {
      error_code ignored;
      socket.close(ignored);
      return;
    }
    waiting_.front()->Drop();
  }
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  std::make_shared<Connection>(*this, std::move(socket))->ReadRequest();
}

}  // namespace kolvex_console
