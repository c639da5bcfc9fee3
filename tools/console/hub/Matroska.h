#pragma once

#include <memory>
#include <string>

#include "hub/Feed.h"
#include "hub/Outlet.h"

namespace kolvex_console {

/// One camera's frames as a live Matroska stream: as the driver gave them, in clusters of a second, without an end
/// that is known and without an index. A viewer that is too slow loses frames up to the next key frame.
class MatroskaOutlet final : public Outlet {
 public:
  explicit MatroskaOutlet(std::shared_ptr<Feed> feed);
  ~MatroskaOutlet() override;

  std::string Type() const override { return "video/x-matroska"; }
  bool Next(Unit& into) override;
  bool HasEnded() const override { return failed_ || feed_->IsClosed(); }

 private:
  class Muxer;
  const std::shared_ptr<Feed> feed_;
  const std::shared_ptr<FrameQueue> queue_;
  std::unique_ptr<Muxer> muxer_;  // from the first key frame on, which has the picture's size
  bool failed_ = false;
};

}  // namespace kolvex_console
