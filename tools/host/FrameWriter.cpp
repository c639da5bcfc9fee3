#include "FrameWriter.h"

#include <exception>
#include <utility>

namespace kolvex_host {

FrameWriter::Stream::Stream(const StreamOptions& options)
    : codec(options.codec), inspector(options.codec), inspectAll(options.inspect) {
  if (options.folder) {
    files.emplace(*options.folder, codec, options.keep);
  }
  if (options.toOutput) {
    pipe.emplace(codec, options.keep.mkv);
  }
}

FrameWriter::FrameWriter(const std::vector<StreamOptions>& streams, SteadyTime start) : start_(start) {
  for (const StreamOptions& options : streams) {
    streams_.emplace_back(options);
  }
  thread_ = std::thread([this] { Run(); });
}

FrameWriter::~FrameWriter() { Join(); }

void FrameWriter::Push(QueuedFrame frame) {
  {
    const std::lock_guard guard(lock_);
    queue_.push_back(std::move(frame));
  }
  changed_.notify_one();
}

PictureCounts FrameWriter::Counts(std::size_t stream) const {
  const std::lock_guard guard(lock_);
  return streams_[stream].counts;
}

void FrameWriter::Finish() {
  Join();
  if (failure_) {
    throw Failure(*failure_);
  }
}

Picture FrameWriter::LatestPicture(std::size_t stream) const {
  const Stream& from = streams_[stream];
  std::vector<sarnevo::u8> bytes;
  {
    const std::lock_guard guard(lock_);
    if (!from.latestKey) {
      return {};
    }
    bytes.assign(from.latestKey->Bytes().begin(), from.latestKey->Bytes().end());
  }
  PictureDecoder decoder(from.codec);
  // A damaged picture is still the best there is to show.
  decoder.Decode(bytes);
  return decoder.GetPicture();
}

void FrameWriter::Run() {
  std::unique_lock guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return finishing_ || !queue_.empty(); });
    if (queue_.empty()) {
      break;
    }
    QueuedFrame queued = std::move(queue_.front());
    queue_.pop_front();
    guard.unlock();
    Guarded([&] { Work(queued); });
    guard.lock();
    streams_[queued.stream].counts = streams_[queued.stream].inspector.Counts();
  }
  guard.unlock();
  for (Stream& stream : streams_) {
    Guarded([&] {
      if (stream.files) {
        stream.files->Close();
      }
    });
  }
}

void FrameWriter::Work(QueuedFrame& queued) {
  Stream& stream = streams_[queued.stream];
  const bool look = stream.inspectAll || !stream.inspector.Counts().HasGood();
  const auto counter = look ? stream.inspector.Inspect(*queued.frame) : std::nullopt;
  const bool good = stream.inspector.Counts().HasGood();
  const Seconds sinceStart = queued.arrived - start_;
  if (stream.files && !failure_) {
    stream.files->Write(*queued.frame, sinceStart, counter, good);
  }
  if (stream.pipe && good && !failure_) {
    stream.pipe->Write(*queued.frame, sinceStart);
  }
  if (good && queued.frame->IsKey()) {
    const std::lock_guard guard(lock_);
    stream.latestKey = std::move(queued.frame);
  }
}

/// Runs a step and keeps the first failure for the main thread.
void FrameWriter::Guarded(const std::function<void()>& step) noexcept {
  try {
    step();
  } catch (const Failure& failure) {
    if (!failure_) {
      failure_ = failure;
    }
  } catch (const std::exception& error) {
    if (!failure_) {
      failure_.emplace(ExitCode::Internal, std::string("Working on a frame failed: ") + error.what() + ".");
    }
  }
  if (failure_) {
    failed_.store(true, std::memory_order_relaxed);
  }
}

void FrameWriter::Join() {
  {
    const std::lock_guard guard(lock_);
    finishing_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace kolvex_host
