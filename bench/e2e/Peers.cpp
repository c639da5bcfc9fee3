#include "e2e/Peers.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kolvex_bench {

std::vector<std::string> GStreamerCommand(const std::vector<std::uint16_t>& ports, bool jitterBuffer) {
  std::vector<std::string> command{"gst-launch-1.0", "-q"};
  for (const std::uint16_t port : ports) {
    std::istringstream pipeline(
        "udpsrc address=127.0.0.1 buffer-size=131070 port=" + std::to_string(port) +
        " caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=JPEG,payload=26 ! " +
        (jitterBuffer ? "rtpjitterbuffer ! " : "") + "rtpjpegdepay ! fakesink sync=false");
    for (std::string word; pipeline >> word;) {
      command.push_back(word);
    }
  }
  return command;
}

std::vector<std::string> FFmpegCommand(const std::string& description) {
  // Little is looked at in front, so that the streams come up fast; the cost of a frame is the same.
  return {"ffmpeg",
          "-nostdin",
          "-nostats",
          "-protocol_whitelist",
          "file,udp,rtp",
          "-analyzeduration",
          "500000",
          "-i",
          description,
          "-map",
          "0",
          "-c",
          "copy",
          "-f",
          "null",
          "-"};
}

std::string SessionDescription(std::uint16_t port) {
  return "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=bench\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video " +
         std::to_string(port) + " RTP/AVP 26\r\na=framerate:25\r\n";
}

double FramesOf(const std::string& log) {
  std::ifstream in(log);
  std::stringstream text;
  text << in.rdbuf();
  const std::size_t at = text.str().rfind("frame=");
  return at == std::string::npos ? 0 : std::strtod(text.str().c_str() + at + 6, nullptr);
}

}  // namespace kolvex_bench
