#include "http/LookUpName.h"

#include <exception>
#include <memory>
#include <utility>

#include "platform/HostProcess.h"
#include "threads/StoppableThread.h"

namespace Web {

using namespace sarnevo::platform;

namespace {

// Shared by the caller and the thread; it goes with the last of them.
struct Search {
  Event done{false, true};
  // Written by the thread before done, read after it.
  std::vector<SocketAddress> found;
  HttpError result = HttpError::OutOfResources;

  void Run(const std::string& name, std::uint16_t port) noexcept {
    try {
      found = SocketAddress::Resolve(name, port);
      result = found.empty() ? HttpError::NameNotResolved : HttpError::None;
    } catch (const std::exception&) {
      // No memory.
    }
    done.Set();
  }
};

}  // namespace

HttpError LookUpName(const std::string& name, std::uint16_t port, Milliseconds timeout, Event& cancel,
                     std::vector<SocketAddress>& found) {
  if (const auto address = SocketAddress::Parse(name.c_str(), port)) {
    found.push_back(*address);
    return HttpError::None;
  }
  const auto search = std::make_shared<Search>();
  sarnevo::StoppableThread thread;
  if (!thread.Start("KolvexNameLookup", [=] { search->Run(name, port); })) {
    return HttpError::OutOfResources;
  }
  Event* const either[] = {&cancel, &search->done};
  const int ended = Event::WaitAny(either, timeout);
  if (ended != 1) {
    KeepLibraryLoaded();
    return ended == 0 ? HttpError::Cancelled : HttpError::TimedOut;
  }
  thread.Wait();  // it has nothing more to do than to end
  found = std::move(search->found);
  return search->result;
}

}  // namespace Web
