#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "platform/Event.h"
#include "threads/CWorkItemThread.h"

namespace kolvex_test {

inline constexpr std::chrono::seconds kItemLimit{10};

/// Everything that happens to items, one word each.
class Words {
 public:
  void Add(const std::string& word) {
    const std::lock_guard guard(lock_);
    text_ += (text_.empty() ? "" : " ") + word;
  }
  std::string Text() {
    const std::lock_guard guard(lock_);
    return text_;
  }

 private:
  std::mutex lock_;
  std::string text_;
};

/// Tells when it is done and when it is destroyed.
struct Item : sarnevo::thread::CWorkItemThread::IWorkItem {
  Item(Words& out, std::string text, std::function<void()> work = {})
      : words(out), name(std::move(text)), action(std::move(work)) {}
  ~Item() override { words.Add("~" + name); }
  void Do() const {
    words.Add(name);
    if (action) {
      action();
    }
  }
  Words& words;
  const std::string name;
  const std::function<void()> action;
};

/// Holds a thread in an item until it is let go.
struct Hold {
  void operator()() {
    inside.Set();
    goOn.Wait(kItemLimit);
  }
  bool Entered() { return inside.Wait(kItemLimit) == sarnevo::platform::WaitResult::Signalled; }
  sarnevo::platform::Event inside;
  sarnevo::platform::Event goOn;
};

}  // namespace kolvex_test
