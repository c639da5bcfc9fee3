// What the console's server costs with many viewers, beside a bare loop that writes the same bytes to as many sockets.
//
// The viewers are a process of their own, which reads everything and looks how old pictures are when they have come.
// Both senders get 16 cameras' pictures at 25 a second, spread over the time, from memory.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "hub/Doors.h"
#include "hub/Site.h"
#include "web/Server.h"

namespace {

using namespace kolvex_console;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct Options {
  unsigned viewers = 50;
  unsigned cameras = 16;
  unsigned bytes = 20'000;  // of a picture
  unsigned fps = 25;        // of each camera
  double seconds = 8;
};

class StillCamera final : public Camera {
 public:
  std::shared_ptr<Feed> Video() const override { return feed_; }
  StateText State() const override { return {1, std::make_shared<std::string>("{}")}; }
  nlohmann::json History() const override { return {}; }
  CameraCounts Counts() const override { return {}; }
  void Rename(const std::string&) override {}
  Reply Move(const std::string&, int) override { return {}; }
  void SetOutput(unsigned, bool, Done) override {}
  void UsePosition(const std::string&, const std::string&, Done) override {}
  std::shared_ptr<const std::string> Thumbnail(const std::string&) const override { return nullptr; }
  void Simulate(const std::string&, Done) override {}

 private:
  const std::shared_ptr<Feed> feed_ = std::make_shared<Feed>();
};

std::uint64_t Now() {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count());
}

/// What the viewers have seen.
struct Seen {
  std::uint64_t pictures = 0;
  std::uint64_t bytes = 0;
  std::uint64_t oldest = 0;  // milliseconds, of a picture when it had come
  std::uint64_t late = 0;    // pictures older than 200 ms
};

/// One viewer's side of the wall stream: finds the pictures' times in it without keeping the bytes.
class Viewer {
 public:
  void Take(const char* data, std::size_t size, Seen& seen) {
    while (size > 0) {
      if (skip_ > 0) {
        const std::size_t count = std::min(skip_, size);
        skip_ -= count;
        data += count;
        size -= count;
        if (skip_ == 0 && time_ != 0) {
          const std::uint64_t age = Now() - std::min(Now(), std::exchange(time_, 0));
          seen.oldest = std::max(seen.oldest, age);
          seen.late += age > 200 ? 1 : 0;
          ++seen.pictures;
        }
        continue;
      }
      head_ += *data++;
      --size;
      if (isReply_) {
        if (head_.ends_with("\r\n\r\n")) {
          isReply_ = false;
          head_.clear();
        }
      } else if (head_.size() == 13) {
        // Every message of the stream is longer than this.
        const std::size_t length = Number(0, 4);
        time_ = head_[4] == 'P' ? Number(5, 8) : 0;
        skip_ = length - 9;
        head_.clear();
      }
    }
  }

 private:
  std::uint64_t Number(std::size_t at, std::size_t size) const {
    std::uint64_t number = 0;
    for (std::size_t i = at; i < at + size; ++i) {
      number = number << 8U | static_cast<unsigned char>(head_[i]);
    }
    return number;
  }
  std::string head_;
  std::size_t skip_ = 0;
  std::uint64_t time_ = 0;
  bool isReply_ = true;
};

/// The viewers' process: connects to @p port, asks for the wall, reads until the server closes, and writes what it has
/// seen into @p result.
[[noreturn]] void View(const Options& options, int port, int result, int begin) {
  const int all = epoll_create1(EPOLL_CLOEXEC);
  std::vector<int> sockets;
  std::vector<Viewer> viewers(options.viewers);
  for (unsigned i = 0; i < options.viewers; ++i) {
    const int one = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request = "GET /wall HTTP/1.1\r\nHost: localhost\r\n\r\n";
    if (connect(one, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        send(one, request.data(), request.size(), 0) < 0) {
      std::perror("bench_console: connect");
      _exit(1);
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = i;
    epoll_ctl(all, EPOLL_CTL_ADD, one, &event);
    sockets.push_back(one);
  }
  std::vector<char> buffer(256 * 1024);
  Seen seen;
  bool begun = false;
  for (unsigned open = options.viewers; open > 0;) {
    pollfd mark{begin, POLLIN, 0};
    if (!begun && poll(&mark, 1, 0) > 0) {
      begun = true;
      seen = {};
    }
    std::array<epoll_event, 64> events{};
    const int count = epoll_wait(all, events.data(), events.size(), 1000);
    for (int i = 0; i < count; ++i) {
      const unsigned who = events[static_cast<std::size_t>(i)].data.u32;
      const ssize_t size = recv(sockets[who], buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (size > 0) {
        seen.bytes += static_cast<std::uint64_t>(size);
        viewers[who].Take(buffer.data(), static_cast<std::size_t>(size), seen);
      } else if (size == 0 || errno != EAGAIN) {
        epoll_ctl(all, EPOLL_CTL_DEL, sockets[who], nullptr);
        --open;
      }
    }
  }
  _exit(write(result, &seen, sizeof seen) == sizeof seen ? 0 : 1);
}

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Calls @p show for each picture of each camera, in its time, for as long as the measurement lasts. Gives the
/// processor time of the second part of it, which @p begin marks for the viewers.
double Feed(const Options& options, int begin, const std::function<void(unsigned camera)>& show) {
  const auto step = std::chrono::nanoseconds(1'000'000'000 / (options.cameras * options.fps));
  const auto start = Clock::now();
  const auto warm = start + milliseconds(1500);
  const auto end = warm + milliseconds(static_cast<long>(options.seconds * 1000));
  double before = -1;
  for (unsigned i = 0;; ++i) {
    const auto at = start + i * step;
    if (at > end) {
      return ProcessorSeconds() - before;
    }
    if (before < 0 && at > warm) {
      before = ProcessorSeconds();
      if (write(begin, "x", 1) != 1) {
        std::perror("bench_console: pipe");
      }
    }
    std::this_thread::sleep_until(at);
    show(i % options.cameras);
  }
}

struct Measured {
  double processor = 0;  // seconds
  Seen seen;
};

/// Starts the viewers' process, runs @p send with the pipe that marks the beginning, and collects what they have seen.
Measured Measure(const Options& options, int port, const std::function<double(int begin)>& send) {
  std::array<int, 2> result{};
  std::array<int, 2> begin{};
  if (pipe(result.data()) != 0 || pipe(begin.data()) != 0) {
    std::perror("bench_console: pipe");
    std::exit(1);
  }
  const pid_t viewers = fork();
  if (viewers == 0) {
    View(options, port, result[1], begin[0]);
  }
  Measured measured;
  measured.processor = send(begin[1]);
  if (read(result[0], &measured.seen, sizeof measured.seen) != sizeof measured.seen) {
    std::perror("bench_console: viewers");
  }
  waitpid(viewers, nullptr, 0);
  for (const int end : {result[0], result[1], begin[0], begin[1]}) {
    close(end);
  }
  return measured;
}

int PortOf(const Listening& listening) { return std::stoi(listening.url.substr(listening.url.rfind(':') + 1)); }

std::string MessageHead(unsigned camera, std::uint64_t time, std::size_t bytes) {
  const std::string name = "Camera " + std::to_string(camera);
  std::string head;
  const auto append = [&](std::uint64_t number, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      head += static_cast<char>(number >> static_cast<unsigned>(shift) & 0xffU);
    }
  };
  append(15 + name.size() + bytes, 4);
  head += 'P';
  append(time, 8);
  append(1, 4);  // its number
  append(name.size(), 2);
  return head + name;
}

/// One thread, one write for each picture and viewer, nothing else.
Measured MeasureBare(const Options& options, const std::vector<std::string>& pictures) {
  const Listening listening = OpenListening("127.0.0.1:0");
  return Measure(options, PortOf(listening), [&](int begin) {
    std::vector<int> sockets;
    for (unsigned i = 0; i < options.viewers; ++i) {
      const int one = accept(listening.descriptor, nullptr, nullptr);
      std::array<char, 256> request{};
      const std::string head = "HTTP/1.1 200 OK\r\n\r\n";
      if (recv(one, request.data(), request.size(), 0) <= 0 || send(one, head.data(), head.size(), 0) < 0) {
        std::perror("bench_console: accept");
      }
      sockets.push_back(one);
    }
    const double seconds = Feed(options, begin, [&](unsigned camera) {
      for (const int one : sockets) {
        std::string head = MessageHead(camera, Now(), options.bytes);
        std::array<iovec, 2> parts{{{head.data(), head.size()},
                                    {const_cast<char*>(pictures[camera].data()), pictures[camera].size()}}};
        if (writev(one, parts.data(), parts.size()) < 0) {
          std::perror("bench_console: writev");
        }
      }
    });
    for (const int one : sockets) {
      close(one);
    }
    close(listening.descriptor);
    return seconds;
  });
}

Measured MeasureServer(const Options& options, const std::vector<std::string>& pictures) {
  const Listening listening = OpenListening("127.0.0.1:0");
  const int port = PortOf(listening);
  std::unique_ptr<DoorTable> doors;
  Server server({listening}, {},
                [&](const Request& request, const Respond& respond) { doors->Open(request, respond); });
  const auto site = std::make_shared<Site>([&server] { server.Wake(); });
  doors = std::make_unique<DoorTable>(site, DoorTable::Outside{nullptr, [] { return std::string(); }});
  std::vector<std::shared_ptr<StillCamera>> cameras;
  for (unsigned i = 0; i < options.cameras; ++i) {
    cameras.push_back(std::make_shared<StillCamera>());
    site->Add("Camera " + std::to_string(i), cameras.back());
  }
  // The viewers' process is forked before this one has threads.
  return Measure(options, port, [&](int begin) {
    std::thread thread([&] { server.Run(); });
    const double seconds = Feed(options, begin, [&](unsigned camera) {
      const std::string& picture = pictures[camera];
      cameras[camera]->Video()->Show(
          {.number = 0,
           .time = std::chrono::system_clock::now(),
           .width = 720,
           .height = 576,
           .isKey = true,
           .bytes = {reinterpret_cast<const std::uint8_t*>(picture.data()), picture.size()},
           .memory = {}});
      site->Wake();
    });
    server.Stop();
    thread.join();
    return seconds;
  });
}

/// Gives microseconds per picture and viewer.
double Print(const char* name, const Options& options, const Measured& measured) {
  const double each =
      measured.processor * 1e6 / static_cast<double>(std::max<std::uint64_t>(1, measured.seen.pictures));
  const double wanted = static_cast<double>(options.viewers) * options.cameras * options.fps * options.seconds;
  std::printf(
      "%-12s %8.2f us per picture and viewer  %5.1f %% of the pictures  %6.0f MB/s  oldest %4llu ms  over 200 "
      "ms: %llu\n",
      name, each, static_cast<double>(measured.seen.pictures) / wanted * 100,
      static_cast<double>(measured.seen.bytes) / options.seconds / 1e6,
      static_cast<unsigned long long>(measured.seen.oldest),
      static_cast<unsigned long long>(measured.seen.late));
  return each;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("What the console's server costs with many viewers, beside a bare loop.");
  app.add_option("--viewers", options.viewers);
  app.add_option("--cameras", options.cameras);
  app.add_option("--bytes", options.bytes, "of a picture");
  app.add_option("--fps", options.fps);
  app.add_option("--seconds", options.seconds);
  CLI11_PARSE(app, argc, argv);
  std::vector<std::string> pictures;
  for (unsigned i = 0; i < options.cameras; ++i) {
    pictures.emplace_back(options.bytes, static_cast<char>('a' + i));
  }
  const double bare = Print("bare loop", options, MeasureBare(options, pictures));
  const double server = Print("console", options, MeasureServer(options, pictures));
  std::printf("ratio        %8.2f\n", server / bare);
  return 0;
}
