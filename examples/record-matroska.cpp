// Records one or several cameras into Matroska files, one per camera, each written by a thread of its own: OnFrame
// must not wait for a disk.
extern "C" {
#include <libavformat/avformat.h>
}

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "host-objects.h"

using namespace example;
using Clock = std::chrono::steady_clock;

namespace {

// The frames of one camera on their way from the library's receive thread to the file.
class Recording final : public IFrameSink {
 public:
  explicit Recording(std::string file) : file_(std::move(file)) {}
  ~Recording() override { Finish(); }

  bool OnFrame(IFrame* frame) override {
    const std::lock_guard guard(lock_);
    if (waiting_.size() == kMostWaiting) {
      return false;  // the disk is slower than the camera
    }
    // The library sets no time; this is when the frame's last packet came.
    waiting_.push_back({static_cast<Frame*>(frame)->shared_from_this(), Clock::now()});
    more_.notify_one();
    return true;
  }
  void OnNoData() override { std::fprintf(stderr, "%s: no data\n", file_.c_str()); }

  // After StopCapture. Writes what waits and closes the file.
  void Finish() {
    {
      const std::lock_guard guard(lock_);
      finished_ = true;
      more_.notify_one();
    }
    if (writer_.joinable()) {
      writer_.join();
    }
  }
  int Written() const { return written_; }

 private:
  struct Waiting {
    std::shared_ptr<Frame> frame;
    Clock::time_point at;
  };
  static constexpr std::size_t kMostWaiting = 100;  // 4 seconds

  void Write() {
    for (;;) {
      std::unique_lock guard(lock_);
      more_.wait(guard, [this] { return finished_ || !waiting_.empty(); });
      if (waiting_.empty()) {
        break;
      }
      const Waiting next = std::move(waiting_.front());
      waiting_.pop_front();
      guard.unlock();
      if (output_ == nullptr && !Begin(next)) {
        break;
      }
      WriteFrame(next);
    }
    if (output_ != nullptr) {
      av_write_trailer(output_);
      avio_closep(&output_->pb);
      avformat_free_context(output_);
    }
  }

  // The first frame says how large the picture is: the camera may have chosen another size than the wanted one.
  bool Begin(const Waiting& first) {
    if (avformat_alloc_output_context2(&output_, nullptr, "matroska", nullptr) < 0) {
      return false;
    }
    AVStream* const stream = avformat_new_stream(output_, nullptr);
    stream->time_base = {1, 1000};
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_MJPEG;
    stream->codecpar->width = static_cast<int>(first.frame->width);
    stream->codecpar->height = static_cast<int>(first.frame->height);
    began_ = first.at;
    if (avio_open(&output_->pb, file_.c_str(), AVIO_FLAG_WRITE) < 0 ||
        avformat_write_header(output_, nullptr) < 0) {
      std::fprintf(stderr, "%s can't be written\n", file_.c_str());
      avio_closep(&output_->pb);
      avformat_free_context(output_);
      output_ = nullptr;
      return false;
    }
    return true;
  }

  void WriteFrame(const Waiting& next) {
    AVPacket* packet = av_packet_alloc();
    packet->data = next.frame->data.data();
    packet->size = static_cast<int>(next.frame->size);
    packet->flags = AV_PKT_FLAG_KEY;
    packet->pts = packet->dts = std::chrono::duration_cast<std::chrono::milliseconds>(next.at - began_).count();
    av_packet_rescale_ts(packet, {1, 1000}, output_->streams[0]->time_base);
    written_ += av_write_frame(output_, packet) >= 0 ? 1 : 0;
    av_packet_free(&packet);
  }

  const std::string file_;
  std::mutex lock_;
  std::condition_variable more_;
  std::deque<Waiting> waiting_;  // under lock_
  bool finished_ = false;        // under lock_
  std::atomic<int> written_ = 0;
  AVFormatContext* output_ = nullptr;  // of the writer, as is the next
  Clock::time_point began_;
  std::thread writer_{[this] { Write(); }};  // last, so that it finds the rest built
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(
        stderr,
        "usage: record-matroska SECONDS ADDRESS...\n"
        "Asks each camera what it is, and records it into ADDRESS.mkv. The password of the user \"admin\" "
        "comes from\n"
        "KOLVEX_PASSWORD, the library from KOLVEX_LIBRARY_FILE or from where libraries are installed.\n"
        "Exit codes: 0 frames of all cameras, 1 wrong usage, 2 no library, 3 refused by it, 4 no frame of a "
        "camera,\n"
        "5 a query failed\n");
    return 1;
  }
  const Library library(std::getenv("KOLVEX_LIBRARY_FILE"));
  if (!library.IsLoaded()) {
    return 2;
  }
  Allocator allocator;
  std::deque<Camera> cameras;
  std::deque<Recording> recordings;
  std::vector<Library::Driver> drivers;
  for (int i = 2; i < argc; ++i) {
    Camera& camera = cameras.emplace_back();
    camera.address = argv[i];
    if (!library.Query(camera)) {
      return 5;
    }
    drivers.push_back(library.Create());
    Recording& recording = recordings.emplace_back(camera.address + ".mkv");
    if (!drivers.back() || !drivers.back()->Open(nullptr, &allocator, &camera) ||
        !drivers.back()->GetVideoCapture()->StartCapture(0, &recording, &camera)) {
      return 3;
    }
  }
  std::this_thread::sleep_for(std::chrono::seconds(std::atoi(argv[1])));
  drivers.clear();  // closes them: no callback comes from here on
  int code = 0;
  for (Recording& recording : recordings) {
    recording.Finish();
    code = recording.Written() == 0 ? 4 : code;
  }
  return code;
}
