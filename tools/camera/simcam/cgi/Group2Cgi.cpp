#include <algorithm>
#include <array>

#include "simcam/cgi/CgiReply.h"

namespace simcam {

namespace {

CgiReply Refused() { return {400, "Bad parameter\r\n", true}; }

CgiReply Text(const CgiDevice& device, const Pairs& pairs) {
  return {200, pairs.ToText(Group::Two, *device.settings().shape), false};
}

CgiReply Time(CgiDevice& device, const Parameters&) {
  return Text(device, Pairs().Add("Date", Date()).Add("Time", TimeOfDay()));
}

CgiReply HardwareAddress(CgiDevice& device, const Parameters&) {
  return Text(device, Pairs().Add("MAC", device.settings().hardwareAddress));
}

CgiReply CameraType(CgiDevice& device, const Parameters&) {
  const Model* const model = FindModel(device.settings().model);
  return Text(device, Pairs().Add("CameraType", model->typeNumber).Add("Firmware", "V2.03"));
}

bool Take(const Parameters& parameters, std::string_view key, unsigned minimum, unsigned maximum,
          unsigned& into) {
  const std::optional<std::string> text = parameters.Find(key);
  if (!text) {
    return true;
  }
  const std::optional<std::uint64_t> number = ParseNumber(*text, minimum, maximum);
  into = number ? static_cast<unsigned>(*number) : into;
  return number.has_value();
}

CgiReply SetMultimedia(CgiDevice& device, const Parameters& parameters) {
  VideoSettings video = device.settings().video;
  const std::string format = parameters.Find("Format").value_or(video.ntsc ? "NTSC" : "PAL");
  const std::string mode = parameters.Find("Mode").value_or(video.codec == Codec::Jpeg ? "mjpeg" : "mpeg4");
  unsigned ignored = 0;  // accepted and without effect on this stream
  if (parameters.Find("CH") != "0" || (format != "PAL" && format != "NTSC") ||
      (mode != "mjpeg" && mode != "mpeg4") || !Take(parameters, "Fps", 1, 30, video.fps) ||
      !Take(parameters, "Jpeg_Quality", 1, 5, video.jpegQuality) ||
      !Take(parameters, "Bitrate", 64, 4096, video.bitrate) ||
      !Take(parameters, "GOPSelect", 1, 10, video.gopSelect) ||
      !Take(parameters, "Compression_Type", 0, 1, ignored) || !Take(parameters, "Stream_Mode", 0, 3, ignored) ||
      !Take(parameters, "Audio", 0, 1, ignored)) {
    return Refused();
  }
  video.ntsc = format == "NTSC";
  video.codec = mode == "mjpeg" ? Codec::Jpeg : Codec::Mpeg4;
  video.resolution = parameters.Find("Resolution").value_or(video.resolution);
  if (SizeOf(Group::Two, video.resolution, video.ntsc).width == 0) {
    return Refused();
  }
  if (video.resolution == "sxga") {
    video.fps = std::min(video.fps, 10U);  // the sensor gives no more at its full size
  }
  device.Configure(video);
  return {200, "OK\r\n", false};
}

CgiReply GetPins(CgiDevice& device, const Parameters&) {
  Pairs pins;
  for (unsigned i = 0; i < device.inputs().count(); ++i) {
    pins.Add(Format("Input%u_Sensor", i + 1), device.inputs().high(i) ? 1U : 0U);
  }
  for (unsigned i = 0; i < *device.settings().outputs; ++i) {
    pins.Add(Format("Out%uSTA", i + 1), device.output(i) ? 1U : 0U);
  }
  pins.Distort(device.inputs().style());
  // Clients end a pin's value only at a tag, so this program always writes markup.
  return {200, pins.ToText(Group::Two, ReplyShape::Markup), false};
}

CgiReply SetPins(CgiDevice& device, const Parameters& parameters) {
  for (unsigned i = 0; i < *device.settings().outputs; ++i) {
    const std::optional<std::string> value = parameters.Find(Format("Out%uSTA", i + 1));
    if (value == "0" || value == "1") {
      device.SetOutput(i, value == "1");
      return {200, "OK\r\n", false};
    }
  }
  return Refused();
}

struct Program {
  std::string_view path;
  CgiReply (*run)(CgiDevice& device, const Parameters& parameters);
};
constexpr std::array kPrograms = {
    Program{"/GetTime.cgi", Time},
    Program{"/GetMAC.cgi", HardwareAddress},
    Program{"/GetCameraType.cgi", CameraType},
    Program{"/SetMultimedia.cgi", SetMultimedia},
    Program{"/GetGPIO.cgi", GetPins},
    Program{"/SetGPIO.cgi", SetPins},
};

}  // namespace

std::optional<CgiReply> RunGroup2Cgi(CgiDevice& device, std::string_view path, const Parameters& parameters) {
  for (const Program& program : kPrograms) {
    if (program.path == path) {
      return program.run(device, parameters);
    }
  }
  return std::nullopt;
}

}  // namespace simcam
