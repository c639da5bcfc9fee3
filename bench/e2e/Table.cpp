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

std::string Streams(const nlohmann::json& row) {
  const int distance = row["distanceUs"];
  return Text("%d x %d/s%s%s", row["streams"].get<int>(), row["framesPerSecond"].get<int>(),
              row["mixed"].get<bool>() ? " mixed" : "", distance > 0 ? Text(", %d us", distance).c_str() : "");
}

void Print(const nlohmann::json& row) {
  std::printf(
      "| %s | %s | %s | %s | %.1f | %s | %s | %s | %.0f | %s | %s | %.0f |\n", Streams(row).c_str(),
      row["receiver"].get<std::string>().c_str(), SpreadText(row, "nsPerPacket", "%.0f (%.0f to %.0f)").c_str(),
      SpreadText(row, "ratio", "%.2f (%.2f to %.2f)").c_str(), row["percentOfCore"]["median"].get<double>(),
      Number(row, "waitsPerPacket", "%.2f").c_str(), Number(row, "callsPerPacket", "%.2f").c_str(),
      Number(row, "allocationsPerPacket", "%.4f").c_str(), row["packetsDroppedByKernel"].get<double>(),
      Number(row, "framesPercent", "%.2f%%").c_str(), Delays(row).c_str(),
      row["proportionalKb"].get<double>() / row["streams"].get<int>());
}

}  // namespace

void PrintTable(const nlohmann::json& rows) {
  std::printf(
      "| streams | receiver | ns/packet | ratio | %% of a core | waits/packet | receives and polls/packet | "
      "allocations/packet | "
      "dropped by the kernel | frames complete | last packet to frame, us: p50 / p99 / max | kB/stream |\n"
      "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const auto& row : rows) {
    Print(row);
  }
  std::fflush(stdout);
}

}  // namespace kolvex_bench
