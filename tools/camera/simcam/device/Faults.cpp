#include "simcam/device/Faults.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();

enum class Needs : std::uint8_t { Nothing, Value, ValueOrPlace };
struct KindName {
  std::string_view name;
  ReplyFault::Kind kind;
  Needs needs;
};
constexpr std::array kKinds = {
    KindName{"ok", ReplyFault::Kind::None, Needs::Nothing},
    KindName{"refuse", ReplyFault::Kind::Refuse, Needs::Nothing},
    KindName{"stall", ReplyFault::Kind::Stall, Needs::Nothing},
    KindName{"delay", ReplyFault::Kind::Delay, Needs::Value},
    KindName{"drip", ReplyFault::Kind::Drip, Needs::Value},
    KindName{"pieces", ReplyFault::Kind::Pieces, Needs::Value},
    KindName{"cut", ReplyFault::Kind::Cut, Needs::ValueOrPlace},
    KindName{"reset", ReplyFault::Kind::Reset, Needs::Nothing},
    KindName{"status", ReplyFault::Kind::Status, Needs::Value},
    KindName{"garbage", ReplyFault::Kind::Garbage, Needs::Value},
    KindName{"oversize", ReplyFault::Kind::Oversize, Needs::Value},
    KindName{"endless", ReplyFault::Kind::Endless, Needs::Nothing},
    KindName{"gone", ReplyFault::Kind::Gone, Needs::Value},
    KindName{"turn", ReplyFault::Kind::Turn, Needs::Value},
};

using Place = ReplyFault::Place;
constexpr std::string_view kHeader = "header";
constexpr std::array<std::pair<std::string_view, Place>, 4> kPlaces{
    {{"start", Place::Start}, {"connect", Place::Connect}, {"status", Place::Status}, {"body", Place::Body}}};

std::optional<std::uint32_t> Number(std::string_view text, std::uint64_t minimum) {
  const std::optional<std::uint64_t> number = ParseNumber(text, minimum, kMax32);
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

bool ReadPlace(std::string_view text, ReplyFault& fault) {
  for (const auto& [name, place] : kPlaces) {
    if (name == text) {
      fault.place = place;
      return true;
    }
  }
  const auto header = text.starts_with(kHeader) ? Number(text.substr(kHeader.size()), 1) : std::nullopt;
  fault.place = Place::Header;
  fault.header = header.value_or(0);
  return header.has_value();
}

std::string PlaceText(const ReplyFault& fault) {
  for (const auto& [name, place] : kPlaces) {
    if (place == fault.place) {
      return place == Place::Start ? "" : "/" + std::string(name);
    }
  }
  return "/" + std::string(kHeader) + std::to_string(fault.header);
}

}  // namespace

bool FaultRate::Strikes(std::mt19937_64& dice, std::uint64_t ordinal) {
  if (next > 0) {
    --next;
    return true;
  }
  if (every > 0) {
    return ordinal % every == 0;
  }
  constexpr double kRange = 18446744073709551616.0;  // 2^64
  return probability > 0 && static_cast<double>(dice()) / kRange < probability;
}

std::optional<FaultRate> FaultRate::Parse(std::string_view text) {
  FaultRate rate;
  if (text.starts_with("every:")) {
    const auto every = Number(text.substr(6), 1);
    rate.every = every.value_or(0);
    return every ? std::optional(rate) : std::nullopt;
  }
  if (text.starts_with("next:")) {
    const auto next = Number(text.substr(5), 1);
    rate.next = next.value_or(0);
    return next ? std::optional(rate) : std::nullopt;
  }
  const std::optional<double> probability = ParseReal(text, 0, 1);
  rate.probability = probability.value_or(0);
  return probability ? std::optional(rate) : std::nullopt;
}

std::string FaultRate::ToText() const {
  if (next > 0) return Format("next:%u", next);
  if (every > 0) return Format("every:%u", every);
  return Format("%g", probability);
}

bool PacketFaults::active() const {
  return lose.active() || duplicate.active() || reorder.active() || truncate.active() || corrupt.active() ||
         garbage.active() || oversize.active() || empty.active() || stranger.active() || mistype.active() ||
         unmark.active() || swap.active();
}

std::optional<ReplyFault> ReplyFault::Take(std::string_view request) {
  const bool applies = kind != Kind::None && kind != Kind::Refuse && place != Place::Connect &&
                       request.find(match) != std::string_view::npos;
  return applies ? CountOff() : std::nullopt;
}

std::optional<ReplyFault> ReplyFault::TakeAtConnect() {
  return place == Place::Connect ? CountOff() : std::nullopt;
}

std::optional<ReplyFault> ReplyFault::CountOff() {
  ReplyFault taken = *this;
  if (count > 0 && --count == 0) {
    *this = ReplyFault{};
  }
  return taken;
}

std::size_t ReplyFault::OffsetIn(std::string_view reply) const {
  const std::size_t blank = reply.find("\r\n\r\n");
  const std::size_t head = std::min(blank, reply.size());
  std::size_t line = 0;
  switch (place) {
    case Place::Status:
      return std::min(reply.find("\r\n"), head) / 2;
    case Place::Header:
      for (std::uint32_t i = 0; i < header && line < head; ++i) {
        line = std::min(reply.find("\r\n", line), head) + 2;
      }
      if (line < head) {
        return (line + std::min(reply.find("\r\n", line), head)) / 2;
      }
      [[fallthrough]];
    case Place::Body:
      return blank == std::string_view::npos ? reply.size() : (blank + 4 + reply.size()) / 2;
    default:
      return 0;
  }
}

void ReplyFault::Lengthen(std::string& body) const {
  if (kind == Kind::Oversize && place == Place::Body) {
    body.insert(body.size() / 2, value, 'x');
  }
}

std::optional<ReplyFault> ReplyFault::Parse(std::string_view text) {
  ReplyFault fault;
  if (const std::size_t star = text.rfind('*'); star != std::string_view::npos) {
    const auto count = Number(text.substr(star + 1), 1);
    if (!count) {
      return std::nullopt;
    }
    fault.count = *count;
    text = text.substr(0, star);
  }
  if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
    fault.match = text.substr(at + 1);
    text = text.substr(0, at);
  }
  const std::size_t slash = text.find('/');
  if (slash != std::string_view::npos) {
    if (!ReadPlace(text.substr(slash + 1), fault)) {
      return std::nullopt;
    }
    text = text.substr(0, slash);
  }
  const std::size_t colon = text.find(':');
  for (const KindName& known : kKinds) {
    if (known.name != text.substr(0, colon)) {
      continue;
    }
    fault.kind = known.kind;
    const bool hasValue = colon != std::string_view::npos;
    const bool placed = slash != std::string_view::npos;
    if (!hasValue && (known.needs == Needs::Nothing || (known.needs == Needs::ValueOrPlace && placed))) {
      return fault;
    }
    if (!hasValue || known.needs == Needs::Nothing || (known.needs == Needs::ValueOrPlace && placed)) {
      return std::nullopt;
    }
    const auto value = Number(text.substr(colon + 1), known.kind == Kind::Pieces ? 1 : 0);
    fault.value = value.value_or(0);
    return value ? std::optional(fault) : std::nullopt;
  }
  return std::nullopt;
}

std::string ReplyFault::ToText() const {
  std::string text;
  for (const KindName& known : kKinds) {
    if (known.kind == kind) {
      text = known.name;
      const bool placed = known.needs == Needs::ValueOrPlace && place != Place::Start;
      if (known.needs != Needs::Nothing && !placed) text += Format(":%u", value);
    }
  }
  text += PlaceText(*this);
  if (!match.empty()) text += "@" + match;
  if (count > 0) text += Format("*%u", count);
  return text;
}

}  // namespace simcam
