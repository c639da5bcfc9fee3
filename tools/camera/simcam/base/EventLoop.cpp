#include "simcam/base/EventLoop.h"

#include <event2/event.h>
#include <event2/thread.h>
#include <signal.h>

#include <future>
#include <stdexcept>
#include <utility>

namespace simcam {

void EventLoop::FreeBase::operator()(event_base* base) const { event_base_free(base); }
void EventLoop::FreeEvent::operator()(event* e) const { event_free(e); }

EventLoop::EventLoop() {
  static const bool threadsReady = evthread_use_pthreads() == 0;
  const std::unique_ptr<event_config, void (*)(event_config*)> config(event_config_new(), event_config_free);
  // Packets are paced in steps of a millisecond or two, which the coarse timer would double.
  event_config_set_flag(config.get(), EVENT_BASE_FLAG_PRECISE_TIMER);
  base_.reset(event_base_new_with_config(config.get()));
  if (!threadsReady || base_ == nullptr) {
    throw std::runtime_error("the system offers no event mechanism");
  }
  wake_.reset(event_new(
      base_.get(), -1, EV_PERSIST,
      [](evutil_socket_t, short, void* self) { static_cast<EventLoop*>(self)->RunTasks(); }, this));
  thread_ = std::thread([this] {
    // A client that has gone is no reason to end the process; the write fails all the same.
    sigset_t broken;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken, nullptr);
    event_base_loop(base_.get(), EVLOOP_NO_EXIT_ON_EMPTY);
  });
}

EventLoop::~EventLoop() {
  Post([this] { event_base_loopexit(base_.get(), nullptr); });
  thread_.join();
}

void EventLoop::Post(std::function<void()> task) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    tasks_.push_back(std::move(task));
  }
  event_active(wake_.get(), EV_READ, 0);
}

void EventLoop::Call(const std::function<void()>& task) {
  if (std::this_thread::get_id() == thread_.get_id()) {
    task();
    return;
  }
  std::promise<void> done;
  Post([&] {
    task();
    done.set_value();
  });
  done.get_future().wait();
}

void EventLoop::RunTasks() {
  std::vector<std::function<void()>> tasks;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    tasks.swap(tasks_);
  }
  for (const auto& task : tasks) {
    task();
  }
}

Timer::Timer(EventLoop& loop, std::function<void()> action)
    : action_(std::move(action)),
      event_(evtimer_new(
          loop.base(),
          [](evutil_socket_t, short, void* context) {
            auto* self = static_cast<Timer*>(context);
            if (self->interval_.count() > 0) {
              self->Start(self->interval_);
            }
            self->action_();
          },
          this)) {}

Timer::~Timer() { event_free(event_); }

void Timer::StartOnce(Microseconds delay) {
  interval_ = Microseconds{0};
  Start(delay);
}

void Timer::StartRepeating(Microseconds interval) {
  interval_ = interval;
  Start(interval);
}

void Timer::Stop() { event_del(event_); }

bool Timer::running() const { return evtimer_pending(event_, nullptr) != 0; }

void Timer::Start(Microseconds delay) {
  timeval wait{};
  wait.tv_sec = static_cast<time_t>(delay.count() / 1'000'000);
  wait.tv_usec = static_cast<suseconds_t>(delay.count() % 1'000'000);
  evtimer_add(event_, &wait);
}

}  // namespace simcam
