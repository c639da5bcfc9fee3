#include "protocols/CUDPPort.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>

#include "platform/Clock.h"
#include "protocols/BurstPace.h"
#include "protocols/HeldPorts.h"

namespace sarnevo {

using platform::Milliseconds;
using platform::ReceiveResult;
using platform::SocketAddress;
using platform::SocketError;

namespace {

// A UDP datagram over IPv4 never exceeds this, nor do several that the system has joined. The receive thread's
// memory has this size from the start: pages that no datagram has reached cost nothing, and nothing has to be
// allocated again when the read size changes.
constexpr std::size_t kMaxDatagramBytes = 65'536;
constexpr u32 kReadSizeStep = 1024;        // growth after a datagram that didn't fit
constexpr u32 kKeptSurplus = 2048;         // a read size that is smaller by no more than this changes nothing
constexpr u64 kReceiveBufferPackets = 32;  // the socket's buffer, in datagrams of the read size
constexpr u64 kMaxReceiveBuffer = 0x1FFFE;
// More datagrams than a socket's buffer holds, so that a sender who doesn't stop can't hold Close up.
constexpr int kMaxDrained = 1024;

// Null means all local addresses. The length is tested first since the system's own notion of a dotted
// text is wider.
std::optional<SocketAddress> LocalAddress(const char* address, u16 port) noexcept {
  if (address == nullptr) {
    return SocketAddress::Any(port);
  }
  const std::size_t length = std::string_view(address).size();
  return length >= 7 && length <= 15 ? SocketAddress::Parse(address, port) : std::nullopt;
}

u32 BufferBytes(u32 readSize) noexcept {
  return static_cast<u32>(std::min(readSize * kReceiveBufferPackets, kMaxReceiveBuffer));
}

// Lets datagrams gather. False when it is better to wait for the next one.
bool SleepInBurst(BurstPace& pace) noexcept {
  const auto until = pace.SleepUntil(platform::MonotonicTime());
  if (until) {
    platform::SleepUntil(*until);
  }
  return until.has_value();
}

}  // namespace

// What one receive thread works with. The thread's own body owns it, so that it lives exactly as long as the
// thread, also when the port is destroyed from inside a callback.
struct CUDPPort::Receiving {
  // Of the calling thread; null on any other.
  static thread_local Receiving* current;

  const CUDPPort* const port;  // only compared
  const std::unique_ptr<u8[]> buffer = std::make_unique_for_overwrite<u8[]>(kMaxDatagramBytes);
  u32 size = 0;       // bytes of a datagram that are taken, as the read size was when it was last followed
  bool left = false;  // a callback has closed the port: don't touch it any more

  BurstPace pace;
  bool more = false;  // of the burst that the last datagram belongs to follows
  bool waits = true;  // the next receive waits for a datagram, and the last one has

  Receiving(const CUDPPort* thePort, u32 bufferBytes) : port(thePort), pace(bufferBytes) {}
  // A datagram was handed over.
  void Pace(u32 bytes) noexcept;
  // Another thread doesn't wait for one that was let go, and may have opened the port again.
  bool HasLeft() const noexcept { return left || own_thread::IsLetGo(); }
};

thread_local CUDPPort::Receiving* CUDPPort::Receiving::current = nullptr;

// A datagram that is a burst by itself costs no look at the clock.
void CUDPPort::Receiving::Pace(u32 bytes) noexcept {
  if (!pace.IsUnderWay()) {
    if (more) {
      pace.Begin(platform::MonotonicTime(), bytes);
    }
    return;
  }
  pace.Add(bytes);
  if (!more) {
    pace.End(platform::MonotonicTime(), waits);
  }
}

CUDPPort::CUDPPort(Milliseconds timeout) noexcept
    : timeoutSeconds_(static_cast<u32>(timeout.count() / 1000)),
      timeoutMicroseconds_(static_cast<u32>(timeout.count() % 1000 * 1000)) {}

CUDPPort::~CUDPPort() { Close(); }

CUDPPort::OpenResult CUDPPort::Open(const char* address, u16 port) noexcept {
  const std::lock_guard guard(lock_);
  if (socket_.IsOpen()) {
    return AlreadyOpen;
  }
  const std::optional<SocketAddress> local = LocalAddress(address, port);
  if (!local) {
    return InvalidAddress;
  }
  const OpenResult result = OpenSocket(*local);
  if (result != Opened) {
    socket_.Close();
    return result;
  }
  const u16 bound = port != 0 ? port : socket_.LocalPort().value_or(0);
  localPort_.store(bound, std::memory_order_relaxed);
  held_ports::Add(bound);
  if (!StartReceiving()) {
    held_ports::Remove(bound);
    socket_.Close();
    localPort_.store(0, std::memory_order_relaxed);
    return NoThread;
  }
  return Opened;
}

CUDPPort::OpenResult CUDPPort::OpenSocket(const SocketAddress& local) noexcept {
  if (!socket_.Open(platform::Transport::Udp)) {
    return NoSocket;
  }
  const Milliseconds timeout{u64{timeoutSeconds_} * 1000 + timeoutMicroseconds_ / 1000};
  if (!socket_.SetReceiveBuffer(BufferBytes(readSize_.load(std::memory_order_relaxed))) ||
      !socket_.SetReceiveTimeout(timeout)) {
    return ReceiveBufferFailed;
  }
  socket_.JoinDatagrams();
  return socket_.Bind(local) == SocketError::None ? Opened : BindFailed;
}

bool CUDPPort::StartReceiving() noexcept {
  running_.store(true, std::memory_order_relaxed);
  try {
    const u32 readSize = readSize_.load(std::memory_order_relaxed);
    const auto receiving = std::make_shared<Receiving>(this, BufferBytes(readSize));
    receiving->size = readSize;
    if (thread_.Start(
            "KolvexRTP",
            [this, receiving] {
              Receiving::current = receiving.get();
              platform::SleepPrecisely();
              Receive(*receiving);
            },
            platform::ThreadPriority::AboveNormal)) {
      return true;
    }
  } catch (const std::bad_alloc&) {
    // no thread without its memory
  }
  running_.store(false, std::memory_order_relaxed);
  return false;
}

bool CUDPPort::Close() noexcept {
  const bool own = thread_.IsOwnThread();
  while (!lock_.try_lock()) {
    if (!own) {
      lock_.lock();
      break;
    }
    if (!running_.load(std::memory_order_relaxed)) {
      return true;  // another thread is closing the port and waits for this very one
    }
    platform::Sleep(Milliseconds{0});
  }
  const std::lock_guard guard(lock_, std::adopt_lock);
  if (!socket_.IsOpen()) {
    return true;
  }
  running_.store(false, std::memory_order_relaxed);
  socket_.Shutdown();
  if (own) {
    Receiving::current->left = true;
  } else {
    thread_.Wait();
  }
  // Only now does no other thread use the descriptor, whose number the system gives to the next that asks.
  Drain();
  held_ports::Remove(LocalPort());
  socket_.Close();
  thread_.Release();
  if (IUDPPortUser* const user = user_.load(std::memory_order_relaxed)) {
    try {
      user->SocketClosed(this);
    } catch (...) {
      // The port is closed whatever its user makes of it.
    }
  }
  localPort_.store(0, std::memory_order_relaxed);
  return true;
}

void CUDPPort::SetUser(IUDPPortUser* user) noexcept {
  const std::lock_guard guard(lock_);
  user_.store(user, std::memory_order_release);
}

void CUDPPort::MoreFollows(bool more) noexcept {
  if (Receiving::current != nullptr && Receiving::current->port == this) {
    Receiving::current->more = more;
  }
}

// A blocking receive with the socket's own time-out is one system call, whether datagrams wait or not; waiting
// for readiness first would make it two. Inside a burst the thread looks first and sleeps for as long as the pace
// says, which is never long enough for a Close to feel.
void CUDPPort::Receive(Receiving& receiving) {
  const std::span<u8> room(receiving.buffer.get(), kMaxDatagramBytes);
  SocketAddress from;
  while (running_.load(std::memory_order_relaxed)) {
    const ReceiveResult got = socket_.ReceiveFrom(room, from, receiving.waits);
    if (!running_.load(std::memory_order_relaxed)) {
      return;
    }
    IUDPPortUser* const user = user_.load(std::memory_order_acquire);
    switch (got.error) {
      case SocketError::None:
        if (got.count == 0) {
          running_.store(false, std::memory_order_relaxed);
          return;
        }
        HandOver(receiving, got, from);
        break;
      case SocketError::NotYet:
        if (!receiving.waits) {
          receiving.waits = !SleepInBurst(receiving.pace);
        } else if (user != nullptr) {
          user->ReceiveTimeout();
        }
        break;
      case SocketError::Gone:
        if (user != nullptr) {
          user->SocketClosed(this);
        }
        return;
      default:
        platform::Sleep(Milliseconds{0});
        break;
    }
    if (receiving.HasLeft()) {
      return;
    }
  }
}

// The datagrams of one receive, each as if it had come by itself: in between the port may be closed, its user be
// changed, and the read size grow.
void CUDPPort::HandOver(Receiving& receiving, const ReceiveResult& got, SocketAddress& from) {
  for (std::size_t at = 0; at < got.count && running_.load(std::memory_order_relaxed); at += got.each) {
    const std::size_t size = std::min(got.each, got.count - at);
    IUDPPortUser* const user = user_.load(std::memory_order_acquire);
    if (!Fits(receiving, size) || user == nullptr) {
      continue;
    }
    user->DataReceived(this, from.Get(), receiving.buffer.get() + at, static_cast<u32>(size));
    if (receiving.HasLeft()) {
      return;
    }
    receiving.Pace(static_cast<u32>(size));
  }
  receiving.waits = !receiving.more || !receiving.pace.Saves();
}

// A datagram that is larger than the read size is lost, and the next one of its kind finds more room.
bool CUDPPort::Fits(Receiving& receiving, std::size_t size) noexcept {
  const u32 wanted = readSize_.load(std::memory_order_relaxed);
  if (wanted > receiving.size || receiving.size - wanted > kKeptSurplus) {
    receiving.size = wanted;
  }
  if (size <= receiving.size) {
    return true;
  }
  readSize_.store(receiving.size + kReadSizeStep, std::memory_order_relaxed);
  return false;
}

void CUDPPort::Drain() noexcept {
  std::array<u8, 1024> dropped;
  SocketAddress from;
  for (int i = 0; i < kMaxDrained; ++i) {
    const ReceiveResult got = socket_.ReceiveFrom(dropped, from, false);
    if (got.error != SocketError::TooLong && got.count == 0) {
      return;
    }
  }
}

}  // namespace sarnevo
