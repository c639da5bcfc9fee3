#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>
#include <string_view>

#include "io/Pollers.h"

namespace kolvex_bench {

namespace {

constexpr std::size_t kStackBytes = 64 * 1024;

struct Camera {
  sockaddr_in address{};
  std::string request;
  bool keepAlive = false;
  int descriptor = -1;
};

bool Exchange(Camera& camera) {
  char bytes[2048];
  if (camera.descriptor < 0) {
    camera.descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(camera.descriptor, reinterpret_cast<sockaddr*>(&camera.address), sizeof(camera.address)) != 0) {
      return false;
    }
  }
  send(camera.descriptor, camera.request.data(), camera.request.size(), MSG_NOSIGNAL);
  // The reply is short and comes in one piece.
  return recv(camera.descriptor, bytes, sizeof(bytes), 0) > 0;
}

void* Poll(void* argument) {
  Camera& camera = *static_cast<Camera*>(argument);
  for (;;) {
    if (!Exchange(camera) || !camera.keepAlive) {
      close(camera.descriptor);
      camera.descriptor = -1;
    }
    const timespec pause{kPollIntervalMs / 1000, kPollIntervalMs % 1000 * 1'000'000L};
    nanosleep(&pause, nullptr);
  }
}

class BarePoller : public Poller {
 public:
  explicit BarePoller(const PollPlan& plan) : plan_(plan) {}

  // The threads end with the process.
  void Add(int index) override {
    auto* const camera = new Camera;
    camera->address.sin_family = AF_INET;
    camera->address.sin_port = htons(plan_.port);
    inet_pton(AF_INET, PolledAddress(index).c_str(), &camera->address.sin_addr);
    camera->keepAlive = plan_.keepAlive;
    camera->request = "GET " + std::string(kPollTarget) + " HTTP/1.1\r\nHost: " + PolledAddress(index) + ":" +
                      std::to_string(plan_.port) +
                      "\r\nAuthorization: Basic dXNlcjpzZWNyZXQ=\r\nUser-Agent: bare\r\nConnection: " +
                      (plan_.keepAlive ? "keep-alive" : "close") +
                      "\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n\r\n";
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, &Poll, camera) != 0) {
      throw std::runtime_error("no thread");
    }
    pthread_attr_destroy(&attributes);
  }

 private:
  const PollPlan plan_;
};

}  // namespace

std::unique_ptr<Poller> MakeBarePoller(const PollPlan& plan) { return std::make_unique<BarePoller>(plan); }

}  // namespace kolvex_bench
