#pragma once

#include <memory>
#include <optional>
#include <string>

#include "MatroskaMuxer.h"
#include "hub/Feed.h"
#include "hub/Outlet.h"

namespace kolvex_console {

/// One camera's frames as a live Matroska stream: as the driver gave them, without an end that is known and without an
/// index. A viewer that is too slow loses frames up to the next key frame.
class MatroskaOutlet final : public Outlet {
 public:
  explicit MatroskaOutlet(std::shared_ptr<Feed> feed) : feed_(std::move(feed)), queue_(feed_->OpenQueue()) {}

  std::string Type() const override { return "video/x-matroska"; }
  bool Next(Unit& into) override;
  bool HasEnded() const override { return failed_ || feed_->IsClosed(); }

 private:
  void Begin(const Picture& first);

  const std::shared_ptr<Feed> feed_;
  const std::shared_ptr<FrameQueue> queue_;
  std::string output_;  // of the muxer, for the next unit
  std::optional<kolvex_host::MatroskaMuxer>
      muxer_;  // from the first key frame on, which has the picture's size
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  std::chrono::system_clock::time_point start_;
  bool failed_ = false;
};

}  // namespace kolvex_console
