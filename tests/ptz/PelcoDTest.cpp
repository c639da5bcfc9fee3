#include "ptz/CPelcoDPtzCommand.h"

#include <gtest/gtest.h>

#include <string>

namespace sarnevo {
namespace {

using Frame = CPelcoDPtzCommand;

// Every frame of the system, split at its fields: sync, address, command 1 and 2, data 1 and 2, checksum.
struct Row {
  const char* name;
  void (*build)(Frame&);
  const char* text;
};

constexpr Row kFrames[] = {
    {"after the construction", [](Frame&) {}, "FF 01 00 00 00 00 01"},
    {"stop", [](Frame& f) { f.ClearMotion(); }, "FF 01 00 00 00 00 01"},
    {"pan left", [](Frame& f) { f.SetPan(0, 0x20); }, "FF 01 00 04 20 00 25"},
    {"pan right", [](Frame& f) { f.SetPan(1, 0x20); }, "FF 01 00 02 20 00 23"},
    {"pan right, fastest", [](Frame& f) { f.SetPan(1, 0x40); }, "FF 01 00 02 40 00 43"},
    {"tilt up", [](Frame& f) { f.SetTilt(1, 0x20); }, "FF 01 00 08 00 20 29"},
    {"tilt down", [](Frame& f) { f.SetTilt(0, 0x20); }, "FF 01 00 10 00 20 31"},
    {"left and up", [](Frame& f) { f.SetPan(0, 0x20), f.SetTilt(1, 0x20); }, "FF 01 00 0C 20 20 4D"},
    {"right and up", [](Frame& f) { f.SetPan(1, 0x20), f.SetTilt(1, 0x20); }, "FF 01 00 0A 20 20 4B"},
    {"left and down", [](Frame& f) { f.SetPan(0, 0x20), f.SetTilt(0, 0x20); }, "FF 01 00 14 20 20 55"},
    {"right and down", [](Frame& f) { f.SetPan(1, 0x20), f.SetTilt(0, 0x20); }, "FF 01 00 12 20 20 53"},
    {"zoom in", [](Frame& f) { f.SetZoom(1); }, "FF 01 00 20 00 00 21"},
    {"zoom out", [](Frame& f) { f.SetZoom(0); }, "FF 01 00 40 00 00 41"},
    {"focus far", [](Frame& f) { f.SetFocus(1); }, "FF 01 00 80 00 00 81"},
    {"focus near", [](Frame& f) { f.SetFocus(0); }, "FF 01 01 00 00 00 02"},
    {"iris open", [](Frame& f) { f.SetIris(1); }, "FF 01 02 00 00 00 03"},
    {"iris close", [](Frame& f) { f.SetIris(0); }, "FF 01 04 00 00 00 05"},
    {"focus stop", [](Frame& f) { f.SetExtended(39, 0); }, "FF 01 00 27 00 00 28"},
    {"automatic focus", [](Frame& f) { f.SetExtended(43, 0); }, "FF 01 00 2B 00 00 2C"},
    {"automatic iris", [](Frame& f) { f.SetExtended(45, 0); }, "FF 01 00 2D 00 00 2E"},
    {"store the first preset", [](Frame& f) { f.SetPreset(3, 1); }, "FF 01 00 03 00 01 05"},
    {"clear preset 20", [](Frame& f) { f.SetPreset(5, 20); }, "FF 01 00 05 00 14 1A"},
    {"go to preset 20", [](Frame& f) { f.SetPreset(7, 20); }, "FF 01 00 07 00 14 1C"},
    {"store the last preset", [](Frame& f) { f.SetPreset(3, 32); }, "FF 01 00 03 00 20 24"},
    {"no preset 0", [](Frame& f) { f.SetPan(1, 8), f.SetPreset(3, 0); }, "FF 01 00 02 08 00 0B"},
    {"no preset 33", [](Frame& f) { f.SetPan(1, 8), f.SetPreset(3, 33); }, "FF 01 00 02 08 00 0B"},

    {"left replaces right", [](Frame& f) { f.SetPan(1, 9), f.SetPan(0, 8); }, "FF 01 00 04 08 00 0D"},
    {"right replaces left", [](Frame& f) { f.SetPan(0, 9), f.SetPan(255, 8); }, "FF 01 00 02 08 00 0B"},
    {"down replaces up", [](Frame& f) { f.SetTilt(1, 9), f.SetTilt(0, 8); }, "FF 01 00 10 00 08 19"},
    {"up replaces down", [](Frame& f) { f.SetTilt(0, 9), f.SetTilt(255, 8); }, "FF 01 00 08 00 08 11"},
    {"wide replaces tele", [](Frame& f) { f.SetZoom(1), f.SetZoom(0); }, "FF 01 00 40 00 00 41"},
    {"tele replaces wide", [](Frame& f) { f.SetZoom(0), f.SetZoom(255); }, "FF 01 00 20 00 00 21"},
    {"near replaces far", [](Frame& f) { f.SetFocus(1), f.SetFocus(0); }, "FF 01 01 00 00 00 02"},
    {"far replaces near", [](Frame& f) { f.SetFocus(0), f.SetFocus(255); }, "FF 01 00 80 00 00 81"},
    {"close replaces open", [](Frame& f) { f.SetIris(1), f.SetIris(0); }, "FF 01 04 00 00 00 05"},
    {"open replaces close", [](Frame& f) { f.SetIris(0), f.SetIris(255); }, "FF 01 02 00 00 00 03"},
    {"all axes at once",
     [](Frame& f) { f.SetPan(1, 1), f.SetTilt(1, 2), f.SetZoom(1), f.SetFocus(0), f.SetIris(1); },
     "FF 01 03 2A 01 02 31"},
    {"an end of motion keeps the speeds",
     [](Frame& f) { f.SetPan(1, 1), f.SetTilt(1, 2), f.SetIris(1), f.ClearMotion(); }, "FF 01 00 00 01 02 04"},
    {"an extended command replaces motion",
     [](Frame& f) { f.SetPan(1, 9), f.SetTilt(1, 9), f.SetIris(1), f.SetExtended(43, 0); },
     "FF 01 00 2B 00 00 2C"},
    {"the checksum wraps", [](Frame& f) { f.SetPan(0, 0xF0), f.SetTilt(0, 0xF0); }, "FF 01 00 14 F0 F0 F5"},
    {"the checksum isn't part of its own sum", [](Frame& f) { f.SetPan(1, 0x20), f.ToHexString(); },
     "FF 01 00 02 20 00 23"},
    {"after a reset", [](Frame& f) { f.SetPan(1, 9), f.SetTilt(1, 9), f.SetIris(1), f.Reset(); },
     "FF 01 00 00 00 00 01"},
};

TEST(PelcoD, MakesEachFrame) {
  for (const Row& row : kFrames) {
    Frame frame;
    row.build(frame);
    std::string expected = row.text;
    std::erase(expected, ' ');
    EXPECT_EQ(frame.ToHexString(), expected) << row.name;
  }
}

}  // namespace
}  // namespace sarnevo
