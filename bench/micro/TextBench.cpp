// Texts from and for a camera's CGI: look-ups in a reply, and commands with the head's serial frame in them.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "camera/CgiText.h"
#include "ptz/CPelcoDPtzCommand.h"
#include "ptz/CPtzCommandBuilder.h"

namespace {

using namespace sarnevo;

// The settings of a camera, about 1 kB; the last of them is looked up, so that all is searched.
const std::string& Reply() {
  static const std::string reply = [] {
    std::string text;
    for (int i = 0; i < 40; ++i) {
      text += "setting_" + std::to_string(i) + "=" + std::to_string(i * 1000) + "\r\n";
    }
    return text + "serial_device=2\r\n";
  }();
  return reply;
}

void GetValue(benchmark::State& state) {
  for (auto _ : state) {
    auto value = GetCgiValue(Reply(), "serial_device", "=", "\r\n &");
    if (value != "2") {
      state.SkipWithError("the value wasn't found");
      break;
    }
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Reply().size()));
}
BENCHMARK(GetValue);

void ExtractValue(benchmark::State& state) {
  std::array<char, 16> value;
  for (auto _ : state) {
    if (!ExtractCgiValue(Reply(), "serial_device", value, '&')) {
      state.SkipWithError("the value wasn't found");
      break;
    }
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Reply().size()));
}
BENCHMARK(ExtractValue);

void PelcoDFrame(benchmark::State& state) {
  for (auto _ : state) {
    CPelcoDPtzCommand command;
    command.SetPan(1, 0x20);
    command.SetTilt(0, 0x10);
    benchmark::DoNotOptimize(command.ToHexString());
  }
}
BENCHMARK(PelcoDFrame);

void PelcoDRequest(benchmark::State& state) {
  CPtzCommandBuilder builder;
  builder.SetProtocol(PtzProtocolPelcoD);
  for (auto _ : state) {
    auto request = builder.MoveCommand(1, 8);
    if (request.empty()) {
      state.SkipWithError("no request was made");
      break;
    }
    benchmark::DoNotOptimize(request);
  }
}
BENCHMARK(PelcoDRequest);

}  // namespace
