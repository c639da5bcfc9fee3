#include "web/Connection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>

#include <sstream>

#include "web/Gate.h"
#include "web/Stream.h"

namespace kolvex_console {

namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

/// Nothing from elsewhere, no inline script, no frame of another page around ours.
constexpr const char* kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; connect-src 'self'; "
    "manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

constexpr std::chrono::seconds kLinger{2};
constexpr std::size_t kLingerBytes = 1024 * 1024;

template <typename Fields>
void SetCommonFields(Fields& fields) {
  fields.set(http::field::server, "kolvex-host");
  fields.set("Content-Security-Policy", kContentPolicy);
  fields.set("X-Content-Type-Options", "nosniff");
  fields.set("X-Frame-Options", "DENY");
  fields.set("Referrer-Policy", "no-referrer");
  fields.set("Cross-Origin-Resource-Policy", "same-origin");
  fields.set("Cross-Origin-Opener-Policy", "same-origin");
  fields.set(http::field::cache_control, "no-store");
}

std::string_view View(boost::beast::string_view text) { return {text.data(), text.size()}; }

/// What can still be said to a client whose request couldn't be read; nothing to one that has gone.
std::optional<Reply> ReplyTo(const error_code& error) {
  if (error == http::error::header_limit) {
    return Refusal(431, "The request's header is too long.");
  }
  if (error == http::error::body_limit) {
    return Refusal(413, "The request's body is too long; 64 KiB is the most.");
  }
  if (error.category() == http::make_error_code(http::error::bad_method).category() &&
      error != http::error::end_of_stream && error != http::error::partial_message) {
    return Refusal(400, "The request can't be read.");
  }
  return std::nullopt;
}

/// Gives an answer once; a door that drops it without a word has failed.
class Responder {
 public:
  Responder(boost::asio::io_context& io, std::function<void(Answer)> deliver)
      : io_(io), deliver_(std::move(deliver)) {}
  ~Responder() { Give(Refusal(503, "The server is ending, or too busy.")); }
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

  void Give(Answer answer) {
    if (deliver_) {
      boost::asio::post(
          io_, [deliver = std::exchange(deliver_, nullptr),
                shared = std::make_shared<Answer>(std::move(answer))] { deliver(std::move(*shared)); });
    }
  }

 private:
  boost::asio::io_context& io_;
  std::function<void(Answer)> deliver_;
};

}  // namespace

Connection::Connection(Server& server, boost::asio::ip::tcp::socket socket)
    : server_(server), stream_(std::move(socket)), requestLimit_(server.io_) {
  ++server_.seats_;
}

Connection::~Connection() {
  LeaveWaiting();
  if (hasSeat_) {
    --server_.seats_;
  }
}

void Connection::LeaveWaiting() {
  if (waiting_) {
    server_.waiting_.erase(*std::exchange(waiting_, std::nullopt));
  }
}

void Connection::Drop() {
  LeaveWaiting();
  --server_.seats_;
  hasSeat_ = false;
  error_code ignored;
  stream_.socket().close(ignored);
}

void Connection::ReadRequest() {
  waiting_ = server_.waiting_.insert(server_.waiting_.end(), this);
  parser_.emplace();
  parser_->header_limit(server_.options_.limits.head);
  parser_->body_limit(server_.options_.limits.body);
  stream_.expires_never();
  EndRequestAfter(server_.options_.limits.request);
  http::async_read(
      stream_, buffer_, *parser_,
      [self = shared_from_this()](const error_code& error, std::size_t) { self->OnRequest(error); });
}

void Connection::EndRequestAfter(std::chrono::milliseconds limit) {
  // One time for all of it: a byte now and then doesn't make it longer.
  isLate_ = false;
  requestLimit_.expires_after(limit);
  requestLimit_.async_wait([weak = weak_from_this()](const error_code& error) {
    if (const auto self = weak.lock(); self && !error && self->waiting_) {
      self->isLate_ = true;
      error_code ignored;
      self->stream_.socket().cancel(ignored);
    }
  });
}

void Connection::OnRequest(const error_code& error) {
  LeaveWaiting();
  requestLimit_.cancel();
  if (!hasSeat_) {
    return;
  }
  if (!error) {
    Judge();
  } else if (const auto reply = isLate_ ? Refusal(408, "The request didn't come in time.") : ReplyTo(error);
             reply && parser_->got_some()) {
    // The rest of the request isn't read, so the connection is of no more use.
    parser_->get().keep_alive(false);
    Send(*reply);
  }
}

void Connection::Judge() {
  const auto& message = parser_->get();
  const Claims claims{
      .method = View(message.method_string()),
      .host = View(message[http::field::host]),
      .hosts = static_cast<std::size_t>(message.count(http::field::host)),
      .origin = View(message[http::field::origin]),
      .fetchSite = View(message["Sec-Fetch-Site"]),
      .fetchMode = View(message["Sec-Fetch-Mode"]),
  };
  if (const auto refusal = Refuse(claims, server_.options_.names)) {
    Send(*refusal);
    return;
  }
  if (!server_.login_) {
    PassOn();
    return;
  }
  const auto settle = [self = shared_from_this()](LoginCheck::Result result) {
    if (result == LoginCheck::Result::Right) {
      self->PassOn();
    } else if (result == LoginCheck::Result::Busy) {
      self->Send(Refusal(429, "Too many logins wait to be checked."));
    } else {
      Reply reply = Refusal(401, "This server wants a user name and a password.");
      reply.fields.emplace_back("WWW-Authenticate", "Basic realm=\"Kolvex cameras\", charset=\"UTF-8\"");
      self->Send(std::move(reply));
    }
  };
  const std::string_view authorization = View(message[http::field::authorization]);
  if (const auto known = server_.login_->Known(authorization)) {
    settle(*known);
  } else {
    // Moved on, so that the connection, whose last owner this may be, ends on its own thread.
    server_.login_->Check(std::string(authorization),
                          [&server = server_, settle = settle](LoginCheck::Result result) mutable {
                            server.Post([settle = std::move(settle), result] { settle(result); });
                          });
  }
}

void Connection::PassOn() {
  auto& message = parser_->get();
  Request request;
  request.method = message.method() == http::verb::post ? "POST" : "GET";
  if (!ParseTarget(View(message.target()), request)) {
    Send(Refusal(400, "The request's path can't be read."));
    return;
  }
  request.isJson = IsJson(View(message[http::field::content_type]));
  request.body = std::move(message.body());
  server_.doors_(request, MakeRespond());
}

Respond Connection::MakeRespond() {
  const auto responder = std::make_shared<Responder>(
      server_.io_, [self = shared_from_this()](Answer answer) { self->Deliver(std::move(answer)); });
  return [responder](Answer answer) { responder->Give(std::move(answer)); };
}

void Connection::Deliver(Answer answer) {
  if (auto* const reply = std::get_if<Reply>(&answer)) {
    Send(std::move(*reply));
  } else {
    BeginStream(std::move(std::get<std::shared_ptr<Outlet>>(answer)));
  }
}

void Connection::Send(Reply reply) {
  const auto& request = parser_->get();
  message_.emplace(static_cast<http::status>(reply.status), request.version());
  SetCommonFields(*message_);
  message_->set(http::field::content_type, reply.type);
  for (const auto& [name, value] : reply.fields) {
    message_->set(name, value);
  }
  message_->keep_alive(request.keep_alive());
  const bool isHead = request.method() == http::verb::head;
  message_->content_length(reply.body.size());
  if (!isHead) {
    message_->body() = std::move(reply.body);
  }
  stream_.expires_after(server_.options_.limits.reply);
  const auto done = [self = shared_from_this()](const error_code& error, std::size_t) {
    if (!error && self->message_->keep_alive()) {
      self->ReadRequest();
    } else {
      error_code ignored;
      self->stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
      self->stream_.expires_after(kLinger);
      self->Linger();
    }
  };
  if (isHead) {
    auto serializer = std::make_shared<http::response_serializer<http::string_body>>(*message_);
    http::async_write_header(
        stream_, *serializer,
        [serializer, done](const error_code& error, std::size_t size) { done(error, size); });
  } else {
    http::async_write(stream_, *message_, done);
  }
}

void Connection::Linger() {
  stream_.async_read_some(boost::asio::buffer(rest_),
                          [self = shared_from_this()](const error_code& error, std::size_t size) {
                            if (!error && (self->lingered_ += size) < kLingerBytes) {
                              self->Linger();
                            }
                          });
}

void Connection::BeginStream(std::shared_ptr<Outlet> outlet) {
  if (server_.streams_.size() >= server_.options_.limits.streams) {
    Send(Refusal(503, "All streams that this server gives at a time are taken."));
    return;
  }
  http::response_header<> head;
  head.version(11);
  head.result(http::status::ok);
  SetCommonFields(head);
  head.set(http::field::content_type, outlet->Type());
  // Its end is the connection's end: any client understands that, and pictures go out as they are.
  head.set(http::field::connection, "close");
  head.set("X-Accel-Buffering", "no");  // for a proxy that would gather
  std::ostringstream text;
  text << head;
  const bool isHead = parser_->get().method() == http::verb::head;
  stream_.expires_never();
  const auto stream = std::make_shared<Stream>(server_, stream_.release_socket(), text.str(),
                                               isHead ? nullptr : std::move(outlet));
  hasSeat_ = false;  // it goes with the stream
  server_.streams_.insert(stream);
  server_.streamCount_ = server_.streams_.size();
  stream->Begin();
}

}  // namespace kolvex_console
