#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kolvex_bench {

/// One process that receives JPEG streams on these ports, one pipeline each, and throws the frames away.
/// @param jitterBuffer  with the buffer that a careful user puts in, at its defaults
std::vector<std::string> GStreamerCommand(const std::vector<std::uint16_t>& ports, bool jitterBuffer);

/// One process that receives the JPEG stream that @p description describes, and copies its frames to nowhere.
std::vector<std::string> FFmpegCommand(const std::string& description);
/// A session description (RFC 8866) of a JPEG stream on that port.
std::string SessionDescription(std::uint16_t port);
/// The number of frames at the end of what FFmpeg has said.
double FramesOf(const std::string& log);

}  // namespace kolvex_bench
