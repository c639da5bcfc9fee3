#include "ConsoleServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "hub/Metrics.h"

namespace kolvex_test {

using namespace kolvex_console;

namespace {

constexpr int kLimit = 60'000;  // milliseconds, of any wait

}  // namespace

StateText FakeCamera::State() const {
  const std::lock_guard guard(lock_);
  return {1,
          std::make_shared<std::string>(nlohmann::json{{"name", name_}, {"why", "It is unplugged."}}.dump())};
}

void FakeCamera::Rename(const std::string& name) {
  const std::lock_guard guard(lock_);
  name_ = name;
}

void FakeCamera::Note(const std::string& line) {
  const std::lock_guard guard(lock_);
  transcript_ += line + "\n";
}

Reply FakeCamera::Move(const std::string& movement, int speed) {
  Note("move " + movement + " " + std::to_string(speed));
  return JsonReply({{"moving", movement}});
}

void FakeCamera::SetOutput(unsigned output, bool high, Done done) {
  Note("output " + std::to_string(output) + (high ? " high" : " low"));
  done(JsonReply({{"done", true}}));
}

void FakeCamera::UsePosition(const std::string& action, const std::string& position, Done done) {
  Note(action + " " + position);
  done(JsonReply({{"done", true}}));
}

void FakeCamera::Simulate(const std::string& fault, Done done) {
  Note("fault " + fault);
  done(Refusal(409, "This is no simulated camera."));
}

std::weak_ptr<const void> FakeCamera::Show(const std::string& bytes, std::chrono::milliseconds age) {
  const auto memory = std::make_shared<const std::string>(bytes);
  feed_->Show({.number = 0,
               .time = std::chrono::system_clock::now() - age,
               .width = 64,
               .height = 48,
               .isKey = true,
               .bytes = {reinterpret_cast<const std::uint8_t*>(memory->data()), memory->size()},
               .memory = memory});
  return std::weak_ptr<const void>(memory);
}

std::string FakeCamera::TakeTranscript() {
  const std::lock_guard guard(lock_);
  return std::exchange(transcript_, {});
}

Client::Client(int port) : Client(port, "") {}

Client::Client(int port, const std::string& path, int receiveBuffer)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (receiveBuffer != 0) {
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("no connection to the server");
  }
  if (!path.empty()) {
    Send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
  }
}

Client::~Client() { close(socket_); }

bool Client::Send(const std::string& bytes) const {
  return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool Client::Fill() {
  pollfd wanted{socket_, POLLIN, 0};
  std::array<char, 65'536> bytes{};
  if (poll(&wanted, 1, kLimit) <= 0) {
    return false;
  }
  const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
  if (count > 0) {
    buffer_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return count > 0;
}

std::string Client::Read(std::size_t size) {
  while (buffer_.size() < size && Fill()) {
  }
  const std::string text = buffer_.substr(0, size);
  buffer_.erase(0, size);
  return text;
}

std::string Client::ReadUntil(const std::string& text) {
  std::size_t at = 0;
  while ((at = buffer_.find(text)) == buffer_.npos) {
    if (!Fill()) {
      return std::exchange(buffer_, {});
    }
  }
  return Read(at + text.size());
}

HttpReply Client::Receive(bool hasBody) {
  HttpReply reply;
  reply.head = ReadUntil("\r\n\r\n");
  if (reply.head.size() > 12) {
    reply.status = std::stoi(reply.head.substr(9, 3));
  }
  constexpr std::string_view kLength = "Content-Length: ";
  const std::size_t at = reply.head.find(kLength);
  if (hasBody && at != reply.head.npos) {
    reply.body = Read(std::stoul(reply.head.substr(at + kLength.size())));
  }
  return reply;
}

HttpReply Get(int port, const std::string& path, const std::string& fields) {
  Client client(port);
  client.Send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n");
  return client.Receive();
}

HttpReply Post(int port, const std::string& path, const std::string& body) {
  Client client(port);
  client.Send("POST " + path + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n" +
              "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  return client.Receive();
}

bool Client::Ends() {
  pollfd wanted{socket_, POLLIN, 0};
  std::array<char, 4096> bytes{};
  while (poll(&wanted, 1, kLimit) > 0) {
    if (recv(socket_, bytes.data(), bytes.size(), 0) <= 0) {
      return true;
    }
  }
  return false;
}

class ConsoleServer::NoKeeper final : public Keeper {
 public:
  explicit NoKeeper(std::shared_ptr<Site> site) : site_(std::move(site)) {}
  void Add(const Wanted& wanted, Done done) override {
    done(wanted.address == "full" ? Refusal(507, "The folder can't be written.")
                                  : JsonReply({{"name", wanted.name}}, 201));
  }
  void Rename(const std::string& from, const std::string& to, Done done) override {
    done(site_->Rename(from, to) ? JsonReply({{"name", to}}) : Refusal(409, "There is a camera of that name."));
  }
  void Remove(const std::string& name, Done done) override {
    site_->Remove(name);
    done(JsonReply({{"removed", name}}));
  }

 private:
  const std::shared_ptr<Site> site_;
};

ConsoleServer::ConsoleServer(ServerOptions options) {
  const Listening listening = OpenListening("127.0.0.1:0");
  port_ = std::stoi(listening.url.substr(listening.url.rfind(':') + 1));
  server_ = std::make_unique<kolvex_console::Server>(
      std::vector{listening}, std::move(options),
      [this](const Request& request, const Respond& respond) { doors_->Open(request, respond); });
  site = std::make_shared<Site>([this] { server_->Wake(); });
  doors_ = std::make_unique<DoorTable>(
      site, DoorTable::Outside{std::make_shared<NoKeeper>(site), [this] { return MetricsText(*site, 3, 17); }});
  thread_ = std::thread([this] { server_->Run([this] { doors_->Tick(); }); });
}

ConsoleServer::~ConsoleServer() {
  server_->Stop();
  thread_.join();
}

FakeCamera& ConsoleServer::Add(const std::string& name) {
  auto camera = std::make_shared<FakeCamera>(name);
  site->Add(name, camera);
  return *camera;
}

}  // namespace kolvex_test
