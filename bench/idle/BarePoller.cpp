#include "idle/BarePoller.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

namespace kolvex_bench {

namespace {

constexpr std::size_t kStackBytes = 64 * 1024;
constexpr timespec kPause{2, 0};  // as the library has it

struct Camera {
  sockaddr_in address{};
  std::string request;
  bool keepsConnections = false;
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
    if (!Exchange(camera) || !camera.keepsConnections) {
      close(camera.descriptor);
      camera.descriptor = -1;
    }
    nanosleep(&kPause, nullptr);
  }
}

}  // namespace

void PollBare(const std::string& address, std::uint16_t port, bool keepsConnections) {
  auto* const camera = new Camera;  // ends with the process
  camera->address.sin_family = AF_INET;
  camera->address.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &camera->address.sin_addr);
  camera->keepsConnections = keepsConnections;
  camera->request = "GET /gpio.cgi?action=retrieve HTTP/1.1\r\nHost: " + address + ":" + std::to_string(port) +
                    "\r\nAuthorization: Basic dXNlcjpzZWNyZXQ=\r\nUser-Agent: bare\r\nConnection: " +
                    (keepsConnections ? "keep-alive" : "close") +
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

}  // namespace kolvex_bench
