#include "hub/Site.h"

#include <algorithm>

namespace kolvex_console {

namespace {

constexpr std::size_t kLines = 200;

auto Named(std::string_view name) {
  return [name](const Site::Entry& entry) { return entry.first == name; };
}

}  // namespace

bool Site::Add(const std::string& name, std::shared_ptr<Camera> camera) {
  {
    const std::lock_guard guard(lock_);
    if (std::any_of(cameras_.begin(), cameras_.end(), Named(name))) {
      return false;
    }
    cameras_.emplace_back(name, std::move(camera));
  }
  Touch();
  return true;
}

std::shared_ptr<Camera> Site::Remove(const std::string& name) {
  std::shared_ptr<Camera> removed;
  {
    const std::lock_guard guard(lock_);
    const auto found = std::find_if(cameras_.begin(), cameras_.end(), Named(name));
    if (found == cameras_.end()) {
      return nullptr;
    }
    removed = std::move(found->second);
    cameras_.erase(found);
  }
  removed->Video()->Close();
  Touch();
  return removed;
}

bool Site::Rename(const std::string& from, const std::string& to) {
  std::shared_ptr<Camera> camera;
  {
    const std::lock_guard guard(lock_);
    const auto found = std::find_if(cameras_.begin(), cameras_.end(), Named(from));
    if (found == cameras_.end() || std::any_of(cameras_.begin(), cameras_.end(), Named(to))) {
      return false;
    }
    found->first = to;
    camera = found->second;
  }
  camera->Rename(to);
  Touch();
  return true;
}

std::shared_ptr<Camera> Site::Find(const std::string& name) const {
  const std::lock_guard guard(lock_);
  const auto found = std::find_if(cameras_.begin(), cameras_.end(), Named(name));
  return found == cameras_.end() ? nullptr : found->second;
}

std::vector<Site::Entry> Site::Cameras() const {
  const std::lock_guard guard(lock_);
  return cameras_;
}

void Site::Log(const std::string& camera, const std::string& text) {
  {
    const std::lock_guard guard(lock_);
    lines_.push_back({++lineCount_, std::chrono::system_clock::now(), camera, text});
    if (lines_.size() > kLines) {
      lines_.pop_front();
    }
  }
  Touch();
}

std::vector<LogLine> Site::LinesAfter(std::uint64_t number) const {
  const std::lock_guard guard(lock_);
  if (lineCount_ <= number) {
    return {};
  }
  const std::size_t count = std::min<std::size_t>(lines_.size(), lineCount_ - number);
  return {lines_.end() - static_cast<std::ptrdiff_t>(count), lines_.end()};
}

}  // namespace kolvex_console
