#include "e2e/Comparison.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/Statistics.h"

namespace kolvex_bench {

namespace {

using namespace std::chrono_literals;

constexpr double kKeyFrameSeconds = 1.2;  // a key frame comes once a second

constexpr const char* kArrivals[] = {"burst", "one by one", "paced", "joined"};

struct Mode {
  const char* name;
  Who who;
  bool refusing = false;
};

struct Window {
  double seconds = 0;
  double cpuNanoseconds = 0;
  double packets = 0;  // sent
  double frames = 0;   // sent
  double dropped = 0;  // packets, by the kernel
  double complete = 0;
  std::vector<double> delays;  // microseconds

  double Cost() const { return cpuNanoseconds / packets; }
};

class Comparison {
 public:
  Comparison(const Plan& plan, const Effort& effort, Board& board, const std::vector<Who>& who)
      : plan_(plan), effort_(effort), board_(board), sentBefore_(SentSoFar(board)), lineup_(plan, board, who) {
    for (const Who one : who) {
      static constexpr const char* kNames[] = {"bare", "library", "GStreamer", "GStreamer, jitter buffer",
                                               "FFmpeg"};
      modes_.push_back({kNames[one], one});
      if (plan.arrival == Arrival::Paced) {
        continue;
      }
      if (one == Bare) {
        modes_.push_back({"bare without poll", one, true});
      }
      // MPEG-4 without frames waits for the next key frame, so that it can't be measured like this.
      if (one == Library && !plan.mixed) {
        modes_.push_back({"library up to the whole frame", one, true});
      }
    }
    windows_.resize(modes_.size());
  }

  nlohmann::json Run() {
    for (int round = 0; round <= effort_.rounds; ++round) {
      for (std::size_t i = 0; i < modes_.size(); ++i) {
        // Each round begins with another one, so that none is always after the same neighbour.
        const std::size_t at = (i + static_cast<std::size_t>(round)) % modes_.size();
        if (round == 0) {
          // For memory and caches to settle, and for each MPEG-4 stream to have had a key frame.
          Serve(modes_[at], std::max(effort_.windowSeconds, plan_.mixed ? kKeyFrameSeconds : 0));
        } else {
          windows_[at].push_back(Measure(modes_[at]));
        }
      }
    }
    lineup_.Check();
    nlohmann::json rows;
    for (std::size_t i = 0; i < modes_.size(); ++i) {
      rows.push_back(Row(i));
      AddDetails(modes_[i], rows.back());
    }
    if (plan_.arrival == Arrival::Paced) {
      const auto [p99, most] = board_.lateness.TakeP99AndMost();
      std::fprintf(stderr,
                   "bench_e2e: %d streams, %d us: the sender was late by %.0f us (p99), %.0f us (most)\n",
                   plan_.streams, plan_.distanceUs, p99, most);
    }
    for (std::size_t i = 0; i < modes_.size(); ++i) {
      if (modes_[i].who == FFmpeg) {  // it counts from its start, not from the first turn
        const auto sent = static_cast<double>(PlaceOf(modes_[i]).sent.frames - sentBefore_[FFmpeg]);
        rows[i]["framesPercent"] = std::min(100.0, 100 * lineup_.EndAndCountFFmpegFrames() / sent);
      }
    }
    return rows;
  }

 private:
  static std::array<std::uint64_t, Board::kPlaces> SentSoFar(const Board& board) {
    std::array<std::uint64_t, Board::kPlaces> frames{};
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i] = board.places[i].sent.frames;
    }
    return frames;
  }

  Place& PlaceOf(const Mode& mode) { return board_.places[static_cast<std::size_t>(mode.who)]; }

  // The sender serves this receiver alone; when it has stopped, what is under way is waited for, some time at most.
  void Serve(const Mode& mode, double seconds, std::chrono::milliseconds drain = 50ms) {
    Place& place = PlaceOf(mode);
    const std::uint64_t frames = place.arrivals.frames;
    const std::uint64_t sent = place.sent.frames;
    board_.refusing = mode.refusing;
    board_.active = mode.who;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    board_.active = Board::kNobody;
    std::this_thread::sleep_for(10ms);  // a frame that the sender is at
    for (auto left = drain; left > 0ms && place.arrivals.frames - frames < place.sent.frames - sent;
         left -= 5ms) {
      std::this_thread::sleep_for(5ms);
    }
  }

  Window Measure(const Mode& mode) {
    Place& place = PlaceOf(mode);
    const auto begin = std::chrono::steady_clock::now();
    const std::uint64_t packets = place.sent.packets;
    const std::uint64_t frames = place.sent.frames;
    const std::uint64_t complete = place.arrivals.frames;
    const double dropped = DroppedDatagrams();
    const std::uint32_t delays = place.arrivals.count;
    const double cpu = lineup_.ProcessorTime(mode.who);
    Serve(mode, effort_.windowSeconds);
    Window window;
    window.cpuNanoseconds = lineup_.ProcessorTime(mode.who) - cpu;
    window.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    window.packets = static_cast<double>(place.sent.packets - packets);
    window.frames = static_cast<double>(place.sent.frames - frames);
    window.complete = static_cast<double>(place.arrivals.frames - complete);
    window.dropped = DroppedDatagrams() - dropped;
    for (std::uint32_t i = delays; i != place.arrivals.count; ++i) {
      window.delays.push_back(place.arrivals.delays[i % Arrivals::kKept] / 1e3);
    }
    if (window.packets == 0) {
      throw std::runtime_error("the sender sent nothing");
    }
    return window;
  }

  nlohmann::json Row(std::size_t at) {
    const Mode& mode = modes_[at];
    Window all;
    std::vector<double> cost, ratio, delays, share;
    for (std::size_t i = 0; i < windows_[at].size(); ++i) {
      const Window& window = windows_[at][i];
      cost.push_back(window.Cost());
      ratio.push_back(window.Cost() / windows_[0][i].Cost());
      share.push_back(100 * window.cpuNanoseconds / 1e9 / window.seconds);
      delays.insert(delays.end(), window.delays.begin(), window.delays.end());
      all.packets += window.packets;
      all.frames += window.frames;
      all.dropped += window.dropped;
      all.complete += window.complete;
    }
    nlohmann::json row{{"streams", plan_.streams},
                       {"framesPerSecond", plan_.framesPerSecond},
                       {"mixed", plan_.mixed},
                       {"arrival", kArrivals[static_cast<int>(plan_.arrival)]},
                       {"distanceUs", plan_.distanceUs},
                       {"receiver", mode.name},
                       {"nsPerPacket", Json(SpreadOf(cost))},
                       {"ratio", Json(SpreadOf(ratio))},
                       {"percentOfCore", Json(SpreadOf(share))},
                       {"packetsDroppedByKernel", all.dropped}};
    if (mode.who == Bare || mode.who == Library) {
      row["framesMissing"] = all.frames - all.complete;
      row["framesPercent"] = 100 * all.complete / all.frames;
    }
    if (!delays.empty()) {
      row["delayUs"] = {
          {"p50", Quantile(delays, 0.5)}, {"p99", Quantile(delays, 0.99)}, {"max", Quantile(delays, 1)}};
    }
    return row;
  }

  // What the process asks of the system, in a turn of its own since counting takes time.
  void AddDetails(const Mode& mode, nlohmann::json& row) {
    Place& place = PlaceOf(mode);
    CallCounts& calls = place.calls;
    const ProcessFacts before = lineup_.Facts(mode.who);
    const std::uint64_t packets = place.sent.packets;
    const std::uint64_t counted[] = {calls.allocations, calls.receives, calls.polls};
    calls.on = true;
    Serve(mode, effort_.windowSeconds);
    calls.on = false;
    const ProcessFacts after = lineup_.Facts(mode.who);
    const auto sent = static_cast<double>(place.sent.packets - packets);
    row["waitsPerPacket"] = (after.voluntary - before.voluntary) / sent;
    row["threads"] = after.threads;
    row["proportionalKb"] = after.proportionalKb;
    if (mode.who == Bare || mode.who == Library) {
      row["allocationsPerPacket"] = static_cast<double>(calls.allocations - counted[0]) / sent;
      const std::uint64_t all = calls.receives - counted[1] + calls.polls - counted[2];
      row["callsPerPacket"] = static_cast<double>(all) / sent;
    }
  }

  const Plan plan_;
  const Effort effort_;
  Board& board_;
  std::array<std::uint64_t, Board::kPlaces> sentBefore_{};
  Lineup lineup_;
  std::vector<Mode> modes_;
  std::vector<std::vector<Window>> windows_;  // of each mode
};

}  // namespace

nlohmann::json Compare(const Plan& plan, const Effort& effort, Board& board, const std::vector<Who>& who) {
  return Comparison(plan, effort, board, who).Run();
}

}  // namespace kolvex_bench
