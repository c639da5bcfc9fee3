#include <algorithm>
#include <array>

#include "simcam/cgi/CgiReply.h"

namespace simcam {

namespace {

// What a program answers when all is well, and when a parameter makes no sense. A configuration reply begins
// with these bytes in every shape, since that is all that clients read.
CgiReply Done() { return {200, "ret=200&method=apply\r\n", false}; }
CgiReply Refused() { return {200, "ret=400&method=apply\r\n", true}; }

CgiReply Retrieved(const CgiDevice& device, const Pairs& pairs) {
  return {200, pairs.ToText(Group::One, *device.settings().shape), false};
}

Pairs Start() {
  Pairs pairs;
  pairs.Add("ret", "200").Add("method", "get");
  return pairs;
}

CgiReply Time(CgiDevice& device, const Parameters&) {
  return Retrieved(device,
                   Start().Add("servertime", TimeOfDay()).Add("serverdate", Date()).Add("timezone", "UTC"));
}

CgiReply SerialPorts(CgiDevice& device, const Parameters&) {
  return Retrieved(device, Start()
                               .Add("port", "2")
                               .Add("serial_device", static_cast<unsigned>(*device.settings().head))
                               .Add("baudrate", "9600")
                               .Add("databits", "8")
                               .Add("parity", "none")
                               .Add("stopbits", "1"));
}

CgiReply Channels(CgiDevice& device, const Parameters&) {
  return Retrieved(device, Start().Add("ch_id", "0").Add("ch_name", "Camera 1").Add("status", "on"));
}

CgiReply Network(CgiDevice& device, const Parameters&) {
  return Retrieved(device, Start()
                               .Add("HWADDR0", device.settings().hardwareAddress)
                               .Add("IPADDR0", device.settings().address)
                               .Add("NETMASK0", "255.0.0.0")
                               .Add("DHCP0", "0"));
}

bool Take(const Parameters& parameters, std::string_view key, unsigned maximum, unsigned& into) {
  const std::optional<std::string> text = parameters.Find(key);
  if (!text) {
    return true;
  }
  const std::optional<std::uint64_t> number = ParseNumber(*text, 0, maximum);
  into = number ? static_cast<unsigned>(*number) : into;
  return number.has_value();
}

bool TakeWord(const Parameters& parameters, std::string_view key, std::string_view first,
              std::string_view second, bool& isSecond) {
  const std::optional<std::string> text = parameters.Find(key);
  if (text && *text != first && *text != second) {
    return false;
  }
  isSecond = text ? *text == second : isSecond;
  return true;
}

CgiReply ApplyMultimedia(CgiDevice& device, const Parameters& parameters) {
  VideoSettings video = device.settings().video;
  bool mpeg4 = video.codec == Codec::Mpeg4;
  bool interFrames = mpeg4;
  unsigned rate = video.targetRate;
  if (!TakeWord(parameters, "tv_standard", "PAL", "NTSC", video.ntsc) ||
      !TakeWord(parameters, "mode", "mjpeg", "mpeg4", mpeg4) ||
      !TakeWord(parameters, "sequence", "i", "ip", interFrames) || !Take(parameters, "fps", 1000, video.fps) ||
      !Take(parameters, "gopsize", 300, video.gopSize) || !Take(parameters, "targetrate", 10'000, rate) ||
      !Take(parameters, "peakrate", 20'000, video.peakRate)) {
    return Refused();
  }
  video.fps = std::clamp(video.fps, 1U, video.ntsc ? 30U : 25U);
  video.codec = mpeg4 ? Codec::Mpeg4 : Codec::Jpeg;
  video.targetRate = rate;
  if (mpeg4 && !interFrames) {
    video.gopSize = 1;
  }
  // MPEG-4 sends const_qu=0: the rate decides there, and the quantizer of JPEG stays.
  unsigned quantizer = video.constQuality;
  if (!Take(parameters, "const_qu", 31, quantizer) || (!mpeg4 && quantizer == 0)) {
    return Refused();
  }
  video.constQuality = quantizer > 0 ? quantizer : video.constQuality;
  video.resolution = parameters.Find("resolution").value_or(video.resolution);
  if (SizeOf(Group::One, video.resolution, video.ntsc).width == 0) {
    return Refused();
  }
  device.Configure(video);
  return Done();
}

CgiReply Multimedia(CgiDevice& device, const Parameters&) {
  const VideoSettings& video = device.settings().video;
  Pairs pairs = Start();
  pairs.Add("tv_standard", video.ntsc ? "NTSC" : "PAL")
      .Add("resolution", video.resolution)
      .Add("mode", video.codec == Codec::Jpeg ? "mjpeg" : "mpeg4")
      .Add("fps", video.fps)
      .Add("const_qu", video.constQuality)
      .Add("targetrate", video.targetRate)
      .Add("peakrate", video.peakRate)
      .Add("gopsize", video.gopSize);
  if (*device.settings().audio) {
    pairs.Add("aformat", "g711u");
  }
  return Retrieved(device, pairs);
}

CgiReply Pins(CgiDevice& device, const Parameters&) {
  Pairs pins = Start();
  for (unsigned i = 0; i < device.inputs().count(); ++i) {
    pins.Add(Format("gpio%u", i + 1), device.inputs().high(i) ? 1U : 0U);
  }
  for (unsigned i = 0; i < *device.settings().outputs; ++i) {
    pins.Add(Format("relay%u", i + 1), device.output(i) ? 1U : 0U);
  }
  pins.Distort(device.inputs().style());
  // Clients end a pin's value only at an ampersand, so this program never writes bare lines.
  const ReplyShape shape = *device.settings().shape;
  return {200, pins.ToText(Group::One, shape == ReplyShape::Lines ? ReplyShape::Ampersand : shape), false};
}

CgiReply ApplyPins(CgiDevice& device, const Parameters& parameters) {
  const auto relay = ParseNumber(parameters.Find("relayid").value_or(""), 1, *device.settings().outputs);
  const auto value = ParseNumber(parameters.Find("value").value_or(""), 0, 1);
  if (!relay || !value) {
    return Refused();
  }
  device.SetOutput(static_cast<unsigned>(*relay) - 1, *value == 1);
  return Done();
}

// The bytes go to the port as they are; whether the head understands them isn't the camera's business.
CgiReply Serial(CgiDevice& device, const Parameters& parameters) {
  const auto bytes = DecodeHex(parameters.Find("write").value_or("?"));
  if (parameters.Find("port") != "2" || !bytes || bytes->empty()) {
    return Refused();
  }
  device.WriteSerial(*bytes);
  return Done();
}

struct Program {
  std::string_view path, action;
  CgiReply (*run)(CgiDevice& device, const Parameters& parameters);
};
constexpr std::array kPrograms = {
    Program{"/time.cgi", "retrieve", Time},
    Program{"/comport.cgi", "retrieve", SerialPorts},
    Program{"/multimedia.cgi", "retrieve", Multimedia},
    Program{"/multimedia.cgi", "apply", ApplyMultimedia},
    Program{"/gpio.cgi", "retrieve", Pins},
    Program{"/gpio.cgi", "apply", ApplyPins},
    Program{"/channel.cgi", "retrieve", Channels},
    Program{"/network.cgi", "retrieve", Network},
    Program{"/serial.cgi", "apply", Serial},
};

}  // namespace

std::optional<CgiReply> RunGroup1Cgi(CgiDevice& device, std::string_view path, const Parameters& parameters) {
  bool known = false;
  for (const Program& program : kPrograms) {
    if (program.path != path) {
      continue;
    }
    known = true;
    if (parameters.Find("action") == program.action) {
      return program.run(device, parameters);
    }
  }
  return known ? std::optional(Refused()) : std::nullopt;
}

}  // namespace simcam
