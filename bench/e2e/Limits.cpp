#include "e2e/Limits.h"

#include <cstdio>
#include <stdexcept>

namespace kolvex_bench {

namespace {

constexpr const char* kPacketPath = "library up to the whole frame";

void Expect(double value, double most, const std::string& what, std::vector<std::string>& violations) {
  if (value > most) {
    char text[160];
    std::snprintf(text, sizeof(text), "%s: %.4f, the most is %.4f", what.c_str(), value, most);
    violations.emplace_back(text);
  }
}

}  // namespace

std::vector<std::string> Violations(const nlohmann::json& rows, const Limits& limits) {
  std::vector<std::string> violations;
  int judged = 0;
  for (const auto& row : rows) {
    const std::string name = row["receiver"];
    const bool paced = row["distanceUs"] > 0;
    if (name.starts_with("bare")) {
      continue;
    }
    const std::string what = name + (paced ? ", packets one after another" : "");
    if (paced || name == kPacketPath) {
      ++judged;
      Expect(row["ratio"]["median"], paced ? limits.pacedRatio : limits.packetPathRatio,
             what + ", processor time against the bare receiver", violations);
    }
    if (row["framesPercent"] < 50) {
      throw std::runtime_error("too few frames came to judge by");
    }
    if (paced) {
      Expect(row["waitsPerPacket"], limits.pacedWaitsPerPacket, what + ", waits per packet", violations);
    }
    Expect(row["callsPerPacket"], paced ? limits.pacedCallsPerPacket : limits.callsPerPacket,
           what + ", system calls per packet", violations);
    Expect(row["allocationsPerPacket"], limits.allocationsPerPacket, what + ", allocations per packet",
           violations);
  }
  if (judged == 0) {
    throw std::runtime_error("the packet path wasn't measured");
  }
  return violations;
}

}  // namespace kolvex_bench
