#include "simcam/device/Faults.h"

#include <array>
#include <limits>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();

struct KindName {
  std::string_view name;
  ReplyFault::Kind kind;
  bool hasValue;
};
constexpr std::array kKinds = {
    KindName{"ok", ReplyFault::Kind::None, false},         KindName{"refuse", ReplyFault::Kind::Refuse, false},
    KindName{"stall", ReplyFault::Kind::Stall, false},     KindName{"delay", ReplyFault::Kind::Delay, true},
    KindName{"drip", ReplyFault::Kind::Drip, true},        KindName{"pieces", ReplyFault::Kind::Pieces, true},
    KindName{"cut", ReplyFault::Kind::Cut, true},          KindName{"reset", ReplyFault::Kind::Reset, false},
    KindName{"status", ReplyFault::Kind::Status, true},    KindName{"garbage", ReplyFault::Kind::Garbage, true},
    KindName{"endless", ReplyFault::Kind::Endless, false},
};

std::optional<std::uint32_t> Number(std::string_view text, std::uint64_t minimum) {
  const std::optional<std::uint64_t> number = ParseNumber(text, minimum, kMax32);
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
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
         garbage.active() || unmark.active() || swap.active();
}

std::optional<ReplyFault> ReplyFault::Take(std::string_view request) {
  if (kind == Kind::None || kind == Kind::Refuse || request.find(match) == std::string_view::npos) {
    return std::nullopt;
  }
  ReplyFault taken = *this;
  if (count > 0 && --count == 0) {
    *this = ReplyFault{};
  }
  return taken;
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
  const std::size_t colon = text.find(':');
  for (const KindName& known : kKinds) {
    if (known.name != text.substr(0, colon)) {
      continue;
    }
    fault.kind = known.kind;
    if (known.hasValue != (colon != std::string_view::npos)) {
      return std::nullopt;
    }
    if (!known.hasValue) {
      return fault;
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
      if (known.hasValue) text += Format(":%u", value);
    }
  }
  if (!match.empty()) text += "@" + match;
  if (count > 0) text += Format("*%u", count);
  return text;
}

}  // namespace simcam
