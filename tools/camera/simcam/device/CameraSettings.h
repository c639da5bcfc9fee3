#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simcam/codec/StreamFormat.h"
#include "simcam/device/Models.h"
#include "simcam/device/VideoSettings.h"

namespace simcam {

/// How a camera lays out the key=value pairs of its CGI replies.
enum class ReplyShape : std::uint8_t {
  Ampersand,  ///< ret=200&method=get&...
  Lines,      ///< one pair a line
  Markup,     ///< pairs within HTML
};

/// What a camera is when it is switched on.
struct CameraSettings {
  Group group = Group::One;
  std::string model{};                ///< empty: P-426 in group 1, P-410 in group 2
  std::string address = "127.0.1.1";  ///< its own IPv4 address
  std::uint16_t httpPort = 80;
  std::uint16_t rtspPort = 554;
  std::uint16_t rtpPort = 6970;    ///< first port tried for RTP; RTCP is the next
  std::string userName = "admin";  ///< empty: every request is let in
  std::string password = "kolvex";
  std::string caption{};               ///< in the picture; empty: model, group and address
  double pan = 0, tilt = 0, zoom = 1;  ///< where it looks at first: -30 to 30 and -8 to 16 degrees, 1 to 5
  std::string hardwareAddress{};       ///< MAC; empty: made of the IPv4 address
  std::optional<ReplyShape> shape{};   ///< none: ampersands in group 1, markup in group 2
  std::optional<Sampling> sampling{};  ///< none: 4:2:0 in group 1, 4:2:2 in group 2
  std::optional<unsigned> inputs{}, outputs{};  ///< none: as the model has
  std::optional<bool> audio{};
  std::optional<HeadProtocol> head{};
  VideoSettings video{};
  std::uint64_t seed = 0;  ///< of faults, numbers and walks; 0: by chance

  /// The same with every open choice made as the model and the group have it. Nothing when the model is
  /// unknown or of the other group; `error` then says why in a sentence.
  std::optional<CameraSettings> Completed(std::string& error) const;
};

/// Reads "group=1,address=127.0.1.1,model=P-423,..." over the settings; keys are those of --help. False and a
/// sentence when a key or value isn't known.
bool ApplyCameraText(std::string_view text, CameraSettings& settings, std::string& error);

}  // namespace simcam
