#include "camera/Transcoder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <vector>

#include "simcam/codec/Mpeg4Encoder.h"

namespace {

using namespace kolvex_console;
using Clock = std::chrono::steady_clock;
using Time = std::chrono::system_clock::time_point;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// A stream that begins with its one key frame; the frames' times are their numbers in seconds, from 1.
std::vector<PicturePtr> Frames(unsigned count) {
  simcam::Mpeg4Encoder encoder(
      {.codec = simcam::Codec::Mpeg4, .width = 160, .height = 128, .keyInterval = count});
  std::vector<PicturePtr> frames;
  for (unsigned i = 1; i <= count; ++i) {
    const std::vector<std::uint8_t> pixels(std::size_t{160} * 128 * 4, static_cast<std::uint8_t>(2 * i));
    const auto frame = std::make_shared<const simcam::Mpeg4Encoder::Frame>(
        encoder.Encode({.data = pixels.data(), .width = 160, .height = 128, .stride = 160 * 4}, i == 1));
    frames.push_back(std::make_shared<const Picture>(Picture{.number = 0,
                                                             .time = Time(seconds(i)),
                                                             .width = 160,
                                                             .height = 128,
                                                             .isKey = frame->key,
                                                             .bytes = frame->bytes,
                                                             .memory = frame}));
  }
  return frames;
}

TEST(Transcoder, PassesOverFramesThatOthersWaitBehindAndShowsTheNewest) {
  constexpr unsigned kFrames = 80;
  const std::vector<PicturePtr> frames = Frames(kFrames);
  std::promise<void> began;
  std::promise<void> release;
  std::promise<Clock::time_point> ended;
  unsigned shown = 0;  // the transcoder's thread, and this one after the end
  Transcoder transcoder([&](const Picture& picture) {
    if (++shown == 1) {
      EXPECT_EQ(picture.time, frames.front()->time);
      began.set_value();
      release.get_future().wait();
    }
    EXPECT_EQ(picture.bytes[0], 0xff) << "a JPEG file";
    if (picture.time == frames.back()->time) {
      ended.set_value(Clock::now());
    }
  });
  transcoder.Put(frames[0]);
  ASSERT_EQ(began.get_future().wait_for(seconds(60)), std::future_status::ready);
  for (unsigned i = 1; i < kFrames; ++i) {
    transcoder.Put(frames[i]);
  }
  const auto released = Clock::now();
  release.set_value();
  auto end = ended.get_future();
  ASSERT_EQ(end.wait_for(seconds(60)), std::future_status::ready) << "the newest is shown";
  // One of each 200 ms, whatever the machine needs for a frame, and the newest.
  const auto most = 1 + 2 + (end.get() - released) / milliseconds(200);
  EXPECT_LE(shown, most);
}

}  // namespace
