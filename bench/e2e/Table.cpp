#include "e2e/Table.h"

#include <cstdio>
#include <string>

namespace kolvex_bench {

namespace {

std::string Text(const char* format, auto... values) {
  char text[160];
  std::snprintf(text, sizeof(text), format, values...);
  return text;
}

std::string SpreadText(const nlohmann::json& row, const char* name, const char* format) {
  const auto& spread = row[name];
  return Text(format, spread["median"].get<double>(), spread["least"].get<double>(),
              spread["most"].get<double>());
}

// "-" for what can't be seen from outside of the receiver.
std::string Number(const nlohmann::json& row, const char* name, const char* format) {
  return row.contains(name) ? Text(format, row[name].get<double>()) : "-";
}

std::string Delays(const nlohmann::json& row) {
  if (!row.contains("delayUs")) {
    return "-";
  }
  const auto& delay = row["delayUs"];
  return Text("%.0f / %.0f / %.0f", delay["p50"].get<double>(), delay["p99"].get<double>(),
              delay["max"].get<double>());
}

}  // namespace

void PrintHead() {
  std::printf(
      "| streams | receiver | ns/packet | us/frame | ratio | %% of a core | packets sent / dropped by the "
      "kernel | "
      "frames complete | last packet to frame, us: p50 / p99 / max | waits/packet | system calls/packet | "
      "allocations/packet | threads | kB/stream |\n"
      "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
}

void PrintRows(const nlohmann::json& rows) {
  for (const auto& row : rows) {
    const int streams = row["streams"];
    const double perFrame =
        row["nsPerPacket"]["median"].get<double>() * row["packetsPerFrame"].get<double>() / 1e3;
    std::printf(
        "| %d x %d/s%s | %s | %s | %.0f | %s | %s | %.0f / %.0f | %s | %s | %s | %s | %s | %.0f | %.0f |\n",
        streams, row["framesPerSecond"].get<int>(), row["mixed"].get<bool>() ? " mixed" : "",
        row["receiver"].get<std::string>().c_str(),
        SpreadText(row, "nsPerPacket", "%.0f (%.0f to %.0f)").c_str(), perFrame,
        SpreadText(row, "ratio", "%.2f (%.2f to %.2f)").c_str(),
        Text("%.1f", row["percentOfCore"]["median"].get<double>()).c_str(), row["packetsSent"].get<double>(),
        row["packetsDroppedByKernel"].get<double>(), Number(row, "framesPercent", "%.2f%%").c_str(),
        Delays(row).c_str(), Number(row, "waitsPerPacket", "%.2f").c_str(),
        Number(row, "callsPerPacket", "%.2f").c_str(), Number(row, "allocationsPerPacket", "%.4f").c_str(),
        row["threads"].get<double>(), row["proportionalKb"].get<double>() / streams);
  }
  std::fflush(stdout);
}

}  // namespace kolvex_bench
