#include <gtest/gtest.h>

#include <string>

#include "kolvex/IIPPTZApi.h"
#include "ptz/CPtzCommandBuilder.h"

namespace sarnevo {
namespace {

using Builder = CPtzCommandBuilder;

template <u32 direction, i32 speed>
std::string Move(const Builder& builder) {
  return builder.MoveCommand(direction, speed);
}
template <u32 code>
std::string Lens(const Builder& builder) {
  return builder.LensCommand(code);
}
template <PresetOperation operation, u32 slot>
std::string Preset(const Builder& builder) {
  return builder.PresetCommand(operation, slot);
}
std::string Stop(const Builder& builder) { return builder.StopCommand(); }
std::string AutoFocus(const Builder& builder) { return builder.AutoFocusCommand(); }
std::string AutoIris(const Builder& builder) { return builder.AutoIrisCommand(); }

std::string Packed(std::string bytes) {
  std::erase(bytes, ' ');
  return bytes;
}

// What is written to the serial port for each command, in the three-byte protocol and in Pelco-D.
TEST(PtzFrames, OfAllCommands) {
  struct Row {
    const char* name;
    std::string (*build)(const Builder&);
    const char* threeByte;
    const char* pelcoD;
  };
  constexpr char kStopFrame[] = "FF 01 00 00 00 00 01";
  const Row rows[] = {
      {"left", Move<0, 8>, "01 02 83", "FF 01 00 04 20 00 25"},
      {"right", Move<1, 8>, "01 01 83", "FF 01 00 02 20 00 23"},
      {"up", Move<2, 8>, "01 04 98", "FF 01 00 08 00 20 29"},
      {"down", Move<3, 8>, "01 08 98", "FF 01 00 10 00 20 31"},
      {"left and up", Move<4, 8>, "01 06 9b", "FF 01 00 0C 20 20 4D"},
      {"right and up", Move<5, 8>, "01 05 9b", "FF 01 00 0A 20 20 4B"},
      {"left and down", Move<6, 8>, "01 0A 9b", "FF 01 00 14 20 20 55"},
      {"right and down", Move<7, 8>, "01 09 9b", "FF 01 00 12 20 20 53"},
      {"zoom in", Move<8, 1>, "01 10 FF", "FF 01 00 20 00 00 21"},
      {"zoom out", Move<9, 16>, "01 20 FF", "FF 01 00 40 00 00 41"},
      {"an unknown direction", Move<10, 8>, "01", kStopFrame},
      {"slowest", Move<0, 1>, "01 02 80", "FF 01 00 04 04 00 09"},
      {"fastest diagonal", Move<4, 16>, "01 06 bf", "FF 01 00 0C 40 40 8D"},

      {"focus far", Lens<11>, "01 40 FF", "FF 01 00 80 00 00 81"},
      {"focus near", Lens<12>, "01 80 FF", "FF 01 01 00 00 00 02"},
      {"iris close", Lens<13>, "01 00 01", "FF 01 04 00 00 00 05"},
      {"iris open", Lens<14>, "01 00 00", "FF 01 02 00 00 00 03"},
      {"focus stop", Lens<15>, "01 00 FF", "FF 01 00 27 00 00 28"},
      {"iris stop", Lens<16>, "01 00 FF", kStopFrame},
      {"an unknown lens code", Lens<17>, "01", kStopFrame},
      {"stop", Stop, "01 00 FF", kStopFrame},
      {"automatic focus", AutoFocus, "01 00 D5", "FF 01 00 2B 00 00 2C"},
      {"automatic iris", AutoIris, "01 00 D4", "FF 01 00 2D 00 00 2E"},

      {"delete", Preset<PresetDelete, 5>, "01 FF F5", "FF 01 00 05 00 06 0C"},
      {"go to the first slot", Preset<PresetGoto, 0>, "41 00 00", "FF 01 00 07 00 01 09"},
      {"go to the last slot of Pelco-D", Preset<PresetGoto, 31>, "41 1f 00", "FF 01 00 07 00 20 28"},
      {"go to the last slot", Preset<PresetGoto, 63>, "41 3f 00", kStopFrame},
      {"store", Preset<PresetStore, 0>, "81 05 70", "FF 01 00 03 00 01 05"},
      {"store in slot 20", Preset<PresetStore, 20>, "81 05 70", "FF 01 00 03 00 15 19"},
  };
  Builder builder;
  for (const Row& row : rows) {
    for (const u32 none : {0, 3}) {
      builder.SetProtocol(none);
      EXPECT_EQ(row.build(builder), "") << row.name;
    }
    builder.SetProtocol(1);
    EXPECT_EQ(row.build(builder), "/serial.cgi?action=apply&port=2&write=" + Packed(row.threeByte)) << row.name;
    builder.SetProtocol(2);
    EXPECT_EQ(row.build(builder), "/serial.cgi?action=apply&port=2&write=" + Packed(row.pelcoD)) << row.name;
  }
}

}  // namespace
}  // namespace sarnevo
