#include "camera/LiveCamera.h"

#include <algorithm>

#include "Diagnosis.h"
#include "Failure.h"
#include "camera/Simulator.h"

namespace kolvex_console {

using namespace sarnevo;
using kolvex_host::Failure;
using kolvex_host::PooledFrame;
using nlohmann::json;
using std::chrono::milliseconds;

namespace {

/// Frames in memory at a time: one that is newest, and those that slow viewers have begun or record. The limit is
/// there for the case that something holds them for ever.
constexpr std::size_t kFrames = 400;
constexpr std::size_t kHistory = 300;  // seconds
/// A stream begins within 7 seconds; later than that, or after so long a silence, somebody wants to know why.
constexpr milliseconds kUsualStart{7000};
constexpr milliseconds kSilence{2500};
constexpr milliseconds kLookAgain{8000};
constexpr milliseconds kHeadAgain{15'000};
constexpr milliseconds kThumbnailWait{3000};
constexpr milliseconds kTick{20};

std::int64_t SinceEpoch(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
}

/// The reason with advice for a browser: it has no command line.
std::string PageSentence(const kolvex_host::Reason& reason) {
  using Cause = kolvex_host::Reason::Cause;
  switch (reason.cause) {
    case Cause::WrongLogin:
      return reason.what + ": remove it here and add it again with the right ones.";
    case Cause::WrongGroup:
      return reason.what + ": remove it here and add it again.";
    case Cause::OtherCodec:
      return reason.what + ": look who else sets this camera, or remove it here and add it again.";
    default:
      return reason.Sentence();
  }
}

/// A frame and the pool that it goes back to; the frame goes first.
struct HeldFrame {
  std::shared_ptr<kolvex_host::FramePool> pool;
  kolvex_host::FrameRef frame;
};

}  // namespace

LiveCamera::LiveCamera(Surroundings surroundings, const KnownCamera& camera)
    : surroundings_(std::move(surroundings)),
      pool_(std::make_shared<kolvex_host::FramePool>(kFrames)),
      statistics_(camera.config.frameInterval),
      name_(camera.config.name),
      text_(std::make_shared<std::string>("{}")),
      link_{.library = surroundings_.library,
            .config = camera.config,
            .login = camera.login,
            .log = [this](const std::string& text) { surroundings_.site->Log(Name(), text); },
            .changed = [this] { Publish(); }} {
  if (link_.config.codec == CodecMPEG4) {
    transcoder_.emplace([this](Picture picture) {
      feed_->Show(std::move(picture));
      surroundings_.site->Wake();
    });
  }
  stream_.emplace(*link_.library, link_.config, link_.login, sink_, *pool_, link_.DriverLog());
  stream_->Start();
  Publish();
  pins_.Start();  // the last: its callbacks ask all parts for their state
}

LiveCamera::~LiveCamera() {
  feed_->Close();
  head_.Stop();  // now, not after what the desk is at
  ending_.request_stop();
  desk_.End();
  pins_.Close();
  stream_.reset();  // no callback afterwards
}

HeadStation::Thumbnails LiveCamera::MakeThumbnails() {
  return {
      .read = [this](const std::string& position) { return surroundings_.store->Thumbnail(Name(), position); },
      .save = [this](const std::string& position,
                     const std::string& jpeg) { surroundings_.store->SaveThumbnail(Name(), position, jpeg); },
      .remove = [this](const std::string& position) { surroundings_.store->RemoveThumbnail(Name(), position); },
      .take = [this] { return TakePicture(); },
  };
}

bool LiveCamera::TakeFrame(ipcapture::IFrame* frame) {
  auto& pooled = static_cast<PooledFrame&>(*frame);
  const auto held = std::make_shared<HeldFrame>(HeldFrame{pool_, kolvex_host::FrameRef(pooled)});
  Picture picture{.number = 0,
                  .time = std::chrono::system_clock::now(),
                  .width = pooled.Width(),
                  .height = pooled.Height(),
                  .isKey = pooled.IsKey(),
                  .bytes = pooled.Bytes(),
                  .memory = held};
  statistics_.AddFrame(Clock::now(), picture.bytes.size(), picture.isKey, picture.width, picture.height);
  bool cameBack = false;
  {
    const std::lock_guard guard(lock_);
    cameBack = std::exchange(silent_, false) && lastFrame_ != 0;
    restarts_ += cameBack ? 1 : 0;
    lastFrame_ = SinceEpoch(picture.time);
    why_.clear();
  }
  if (cameBack) {
    link_.log("Pictures come again.");
  }
  const bool isRecorded = feed_->IsRecorded();
  if (isRecorded || transcoder_) {
    const auto shared = std::make_shared<const Picture>(picture);
    if (isRecorded) {
      feed_->Record(shared);
    }
    if (transcoder_ && feed_->Lookers() > 0) {
      transcoder_->Put(shared);
    } else if (transcoder_) {
      transcoder_->Pause();
      feed_->Forget(shared->time);
    }
  }
  if (!transcoder_) {
    feed_->Show(std::move(picture));
  }
  if (isRecorded || !transcoder_) {
    surroundings_.site->Wake();
  }
  return true;
}

void LiveCamera::TakeNoData() {
  statistics_.AddNoData();
  const std::lock_guard guard(lock_);
  silent_ = true;
}

std::string LiveCamera::Name() const {
  const std::lock_guard guard(lock_);
  return name_;
}

kolvex_host::CameraConfig LiveCamera::Config() const {
  kolvex_host::CameraConfig config = link_.config;
  config.name = Name();
  return config;
}

StateText LiveCamera::State() const {
  const std::lock_guard guard(lock_);
  return {version_, text_};
}

void LiveCamera::Publish() {
  {
    const std::lock_guard guard(lock_);
    ++version_;
    text_ = std::make_shared<std::string>(BuildState().dump(-1, ' ', false, json::error_handler_t::replace));
  }
  surroundings_.site->Touch();
}

json LiveCamera::BuildState() const {
  const kolvex_host::StreamCounts counts = statistics_.Counts();
  const kolvex_host::CameraConfig& config = link_.config;
  const std::string moving = head_.Moving();
  const std::string here = head_.Here();
  return {
      {"name", name_},
      {"address", config.address + ":" + std::to_string(config.port)},
      {"group", config.Group()},
      {"codec", config.CodecName()},
      {"model", config.model},
      {"interval", config.frameInterval},
      {"width", counts.width},
      {"height", counts.height},
      {"fps", second_.value("fps", 0.0)},
      {"kBps", second_.value("kBps", 0.0)},
      {"second", second_},
      {"frames", counts.frames},
      {"gaps", counts.gaps},
      {"noData", counts.noData},
      {"restarts", restarts_},
      {"viewers", feed_->Viewers()},
      {"since", SinceEpoch(startTime_)},
      {"lastFrame", lastFrame_ != 0 ? json(lastFrame_) : json()},
      {"why", why_.empty() ? json() : json(why_)},
      {"inputs", pins_.Inputs()},
      {"outputs", pins_.Outputs()},
      {"head", head_.IsThere()         ? "ready"
               : config.Group() == "1" ? "unknown"
                                       : "none"},
      {"moving", moving.empty() ? json() : json(moving)},
      {"positions", head_.Positions()},
      {"position", here.empty() ? json() : json(here)},
      {"faults", surroundings_.simulator.empty() ? json() : FaultList()},
      {"fault", fault_},
  };
}

json LiveCamera::History() const {
  const std::lock_guard guard(lock_);
  return json(history_);
}

CameraCounts LiveCamera::Counts() const {
  const kolvex_host::StreamCounts counts = statistics_.Counts();
  CameraCounts all{.frames = counts.frames,
                   .bytes = counts.bytes,
                   .gaps = counts.gaps,
                   .restarts = 0,
                   .noData = counts.noData,
                   .lastFrameAge = std::nullopt,
                   .inputChanges = pins_.Changes()};
  if (counts.frames != 0) {
    all.lastFrameAge = std::chrono::duration<double>(Clock::now() - counts.last).count();
  }
  const std::lock_guard guard(lock_);
  all.restarts = restarts_;
  return all;
}

void LiveCamera::Rename(const std::string& name) {
  {
    const std::lock_guard guard(lock_);
    name_ = name;
  }
  Publish();
}

void LiveCamera::Second() {
  const Clock::time_point now = Clock::now();
  const kolvex_host::StreamCounts counts = statistics_.Counts();
  const double seconds = std::max(0.001, std::chrono::duration<double>(now - beforeTime_).count());
  const auto rounded = [](double value) {
    return static_cast<double>(static_cast<long>(value * 10 + 0.5)) / 10;
  };
  const json second = {
      {"time", SinceEpoch(std::chrono::system_clock::now())},
      {"fps", rounded(static_cast<double>(counts.frames - before_.frames) / seconds)},
      {"kBps", rounded(static_cast<double>(counts.bytes - before_.bytes) / seconds / 1000)},
      {"gaps", counts.gaps - before_.gaps},
  };
  before_ = counts;
  beforeTime_ = now;
  {
    const std::lock_guard guard(lock_);
    second_ = second;
    history_.push_back(second);
    if (history_.size() > kHistory) {
      history_.pop_front();
    }
  }
  const auto silence = counts.frames == 0 ? now - start_ - (kUsualStart - kSilence) : now - counts.last;
  const bool isSilent = silence > std::max(kSilence, milliseconds(link_.config.frameInterval) * 5);
  if (isSilent && now - lastLook_ > kLookAgain && !looksForReason_.exchange(true)) {
    lastLook_ = now;
    if (!desk_.Put([this] { FindReason(); })) {
      looksForReason_ = false;
    }
  }
  if (!isSilent && counts.frames != 0 && link_.config.Group() == "1" && !head_.IsThere() &&
      (lastHeadLook_ == Clock::time_point{} || now - lastHeadLook_ > kHeadAgain) &&
      !looksForHead_.exchange(true)) {
    lastHeadLook_ = now;
    const auto find = [this] {
      head_.Find();
      looksForHead_ = false;
    };
    if (!desk_.Put(find)) {
      looksForHead_ = false;
    }
  }
  Publish();
}

void LiveCamera::FindReason() {
  // A few seconds; cut short when the server ends. Frames that came before the silence say nothing about it.
  const kolvex_host::Diagnosis diagnosis(link_.config, link_.login);
  const std::string why = PageSentence(diagnosis.WhyNoPicture({}, ending_.get_token()));
  bool isNew = false;
  {
    const std::lock_guard guard(lock_);
    isNew = why_ != why;
    why_ = why;
  }
  looksForReason_ = false;
  if (isNew) {
    link_.log(why);
  }
  Publish();
}

void LiveCamera::Put(const Done& done, std::function<Reply()> job) {
  if (!desk_.Put([done, job = std::move(job)] { done(job()); })) {
    done(Refusal(503, "Too much is waiting for this camera."));
  }
}

Reply LiveCamera::Move(const std::string& movement, int speed) { return head_.Move(movement, speed); }

void LiveCamera::SetOutput(unsigned output, bool high, Done done) {
  Put(done, [this, output, high] { return pins_.Switch(desk_, output, high); });
}

void LiveCamera::UsePosition(const std::string& action, const std::string& position, Done done) {
  Put(done, [this, action, position] { return head_.UsePosition(action, position); });
}

std::shared_ptr<const std::string> LiveCamera::Thumbnail(const std::string& position) const {
  return head_.Thumbnail(position);
}

std::shared_ptr<const std::string> LiveCamera::TakePicture() {
  const Feed::Look look(feed_);
  const auto begin = std::chrono::system_clock::now();
  for (const auto end = Clock::now() + kThumbnailWait; Clock::now() < end;) {
    if (const PicturePtr picture = look->Newest(); picture && picture->time >= begin) {
      return std::make_shared<std::string>(picture->bytes.begin(), picture->bytes.end());
    }
    if (desk_.Pause(kTick)) {
      break;
    }
  }
  return nullptr;
}

void LiveCamera::Simulate(const std::string& fault, Done done) {
  if (surroundings_.simulator.empty()) {
    done(Refusal(409, "This is no simulated camera."));
    return;
  }
  Put(done, [this, fault] { return SendFault(fault); });
}

Reply LiveCamera::SendFault(const std::string& fault) {
  Reply reply = SwitchFault(surroundings_.simulator, link_.config.address, fault);
  if (reply.status == 200) {
    {
      const std::lock_guard guard(lock_);
      fault_ = fault;
    }
    link_.log("Fault of the simulated camera: " + fault + ".");
    Publish();
  }
  return reply;
}

}  // namespace kolvex_console
