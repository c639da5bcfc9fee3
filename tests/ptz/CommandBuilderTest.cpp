#include "ptz/CPtzCommandBuilder.h"

#include <gtest/gtest.h>

#include <string>

#include "kolvex/IIPPTZApi.h"

namespace sarnevo {
namespace {

using Builder = CPtzCommandBuilder;

struct Row {
  const char* name;
  std::string (*build)(const Builder&);
  const char* threeByte;  // what is written to the serial port in each protocol
  const char* pelcoD;
};

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

constexpr char kStopFrame[] = "FF 01 00 00 00 00 01";

constexpr Row kCommands[] = {
    {"left", Move<PtzLeft, 8>, "01 02 83", "FF 01 00 04 20 00 25"},
    {"right", Move<PtzRight, 8>, "01 01 83", "FF 01 00 02 20 00 23"},
    {"up", Move<PtzUp, 8>, "01 04 98", "FF 01 00 08 00 20 29"},
    {"down", Move<PtzDown, 8>, "01 08 98", "FF 01 00 10 00 20 31"},
    {"left and up", Move<PtzLeftUp, 8>, "01 06 9b", "FF 01 00 0C 20 20 4D"},
    {"right and up", Move<PtzRightUp, 8>, "01 05 9b", "FF 01 00 0A 20 20 4B"},
    {"left and down", Move<PtzLeftDown, 8>, "01 0A 9b", "FF 01 00 14 20 20 55"},
    {"right and down", Move<PtzRightDown, 8>, "01 09 9b", "FF 01 00 12 20 20 53"},
    {"zoom in", Move<PtzZoomIn, 1>, "01 10 FF", "FF 01 00 20 00 00 21"},
    {"zoom in, fastest", Move<PtzZoomIn, 16>, "01 10 FF", "FF 01 00 20 00 00 21"},
    {"zoom out", Move<PtzZoomOut, 8>, "01 20 FF", "FF 01 00 40 00 00 41"},
    {"an unknown direction", Move<10, 8>, "01", kStopFrame},
    {"a far unknown direction", Move<0xFFFFFFFF, 8>, "01", kStopFrame},

    {"speed 1", Move<PtzLeft, 1>, "01 02 80", "FF 01 00 04 04 00 09"},
    {"speed 2", Move<PtzLeft, 2>, "01 02 80", "FF 01 00 04 08 00 0D"},
    {"speed 3", Move<PtzLeft, 3>, "01 02 81", "FF 01 00 04 0C 00 11"},
    {"speed 4", Move<PtzLeft, 4>, "01 02 81", "FF 01 00 04 10 00 15"},
    {"speed 5", Move<PtzLeft, 5>, "01 02 82", "FF 01 00 04 14 00 19"},
    {"speed 14", Move<PtzLeft, 14>, "01 02 86", "FF 01 00 04 38 00 3D"},
    {"speed 15", Move<PtzLeft, 15>, "01 02 87", "FF 01 00 04 3C 00 41"},
    {"speed 16, pan", Move<PtzRight, 16>, "01 01 87", "FF 01 00 02 40 00 43"},
    {"speed 16, tilt", Move<PtzUp, 16>, "01 04 b8", "FF 01 00 08 00 40 49"},
    {"speed 16, diagonal", Move<PtzLeftUp, 16>, "01 06 bf", "FF 01 00 0C 40 40 8D"},

    {"focus far", Lens<LensFocusFar>, "01 40 FF", "FF 01 00 80 00 00 81"},
    {"focus near", Lens<LensFocusNear>, "01 80 FF", "FF 01 01 00 00 00 02"},
    {"iris close", Lens<LensIrisClose>, "01 00 01", "FF 01 04 00 00 00 05"},
    {"iris open", Lens<LensIrisOpen>, "01 00 00", "FF 01 02 00 00 00 03"},
    {"focus stop", Lens<LensFocusStop>, "01 00 FF", "FF 01 00 27 00 00 28"},
    {"iris stop", Lens<LensIrisStop>, "01 00 FF", kStopFrame},
    {"unknown lens codes", Lens<10>, "01", kStopFrame},
    {"unknown lens codes above", Lens<17>, "01", kStopFrame},

    {"stop", Stop, "01 00 FF", kStopFrame},
    {"automatic focus", AutoFocus, "01 00 D5", "FF 01 00 2B 00 00 2C"},
    {"automatic iris", AutoIris, "01 00 D4", "FF 01 00 2D 00 00 2E"},

    {"delete a position", Preset<PresetDelete, 5>, "01 FF F5", "FF 01 00 05 00 06 0C"},
    {"delete another", Preset<PresetDelete, 0>, "01 FF F5", "FF 01 00 05 00 01 07"},
    {"go to the first slot", Preset<PresetGoto, 0>, "41 00 00", "FF 01 00 07 00 01 09"},
    {"go to slot 10", Preset<PresetGoto, 10>, "41 0a 00", "FF 01 00 07 00 0B 13"},
    {"go to the last slot of Pelco-D", Preset<PresetGoto, 31>, "41 1f 00", "FF 01 00 07 00 20 28"},
    {"go to the last slot", Preset<PresetGoto, 63>, "41 3f 00", kStopFrame},
    {"a slot beyond a byte is no other slot", Preset<PresetGoto, 256>, "41 100 00", kStopFrame},
    {"a slot that would wrap to no slot", Preset<PresetGoto, 0xFFFFFFFF>, "41 ffffffff 00", kStopFrame},
    {"store", Preset<PresetStore, 0>, "81 05 70", "FF 01 00 03 00 01 05"},
    {"store in slot 19", Preset<PresetStore, 19>, "81 05 70", "FF 01 00 03 00 14 18"},
    {"store in slot 20", Preset<PresetStore, 20>, "81 05 70", "FF 01 00 03 00 15 19"},
    {"store in the last slot of Pelco-D", Preset<PresetStore, 31>, "81 05 70", "FF 01 00 03 00 20 24"},
};

std::string Path(std::string bytes) {
  std::erase(bytes, ' ');
  return "/serial.cgi?action=apply&port=2&write=" + bytes;
}

TEST(PtzCommands, InBothProtocols) {
  Builder threeByte;
  threeByte.SetProtocol(PtzProtocolThreeByte);
  Builder pelcoD;
  pelcoD.SetProtocol(PtzProtocolPelcoD);
  const Builder none;
  Builder unknown;
  unknown.SetProtocol(3);
  for (const Row& row : kCommands) {
    EXPECT_EQ(row.build(threeByte), Path(row.threeByte)) << row.name;
    EXPECT_EQ(row.build(pelcoD), Path(row.pelcoD)) << row.name;
    EXPECT_EQ(row.build(none), "") << row.name;
    EXPECT_EQ(row.build(unknown), "") << row.name;
  }
}

}  // namespace
}  // namespace sarnevo
