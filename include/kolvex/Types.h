#pragma once

#include <cstdint>

/// Fixed-width integers and fixed values that cross the border between the host and the library.
namespace sarnevo {

// Fixed-width integers, as the interfaces use them.
using u8 = std::uint8_t;    ///< 8 bits
using u16 = std::uint16_t;  ///< 16 bits
using u32 = std::uint32_t;  ///< 32 bits
using u64 = std::uint64_t;  ///< 64 bits
using i32 = std::int32_t;   ///< 32 bits, signed

/// Codec of a video stream, as IIPConnectionInfo::GetCodec gives it.
enum Codec : u32 {
  CodecMJPEG = 1,  ///< RTP/JPEG (RFC 2435), delivered as JPEG files (ITU-T T.81)
  CodecMPEG4 = 2,  ///< MPEG-4 Visual elementary stream (ISO/IEC 14496-2)
};

/// Video standard, as the driver keeps it. A host doesn't pass these numbers: SettingVideoStandard is a text, in which
/// "1" means PAL and anything else NTSC.
enum VideoStandard : u32 {
  VideoStandardPAL = 0,   ///< 50 Hz
  VideoStandardNTSC = 1,  ///< 60 Hz
};

/// Codes that say what a frame holds: four ASCII characters as a little-endian 32-bit word.
enum FrameFourCC : u32 {
  FrameFourCCJPEG = 0x4745504A,        ///< "JPEG", a JPEG file
  FrameFourCCMPEG4Key = 0x58564944,    ///< "DIVX", an MPEG-4 frame with the stream's headers
  FrameFourCCMPEG4Inter = 0x49564944,  ///< "DIVI", an MPEG-4 frame that needs the ones before it
};

/// State of a digital input or output.
enum IOState : u32 {
  IOStateUnknown = 0,  ///< nothing is known; never reported to the host
  IOStateLow = 1,      ///< the camera's value 0
  IOStateHigh = 2,     ///< the camera's value 1
};

/// Levels of a debug message, as CDebugInfoIf::GetLevel gives them.
enum DebugLevel : u32 {
  DebugLevelFailure = 1,  ///< a failure
  DebugLevelOldHost = 2,  ///< what DebugLevelEvent becomes on a host older than 5.12
  DebugLevelEvent = 3,    ///< an event worth noting
  DebugLevelDropped = 4,  ///< never reaches the host
};

/// Indexes of the numbered settings that IIPDriverParams::GetCustomSetting takes. All are texts.
/// Settings 4 to 9 exist for group 1 cameras only.
enum CustomSetting : u32 {
  SettingNetworkTimeout = 1,  ///< milliseconds, decimal; 5000 when missing or 0
  SettingCameraGroup = 2,     ///< "1" or "2"; required
  SettingVideoStandard = 3,   ///< "1" for PAL, anything else for NTSC; required
  SettingMaxQualityJPEG = 4,  ///< upper end of the camera's constant-quality scale
  SettingMinQualityJPEG = 5,  ///< lower end of that scale
  SettingMaxQualityMPEG = 6,  ///< highest MPEG-4 bit rate, in the camera's own unit
  SettingMinQualityMPEG = 7,  ///< lowest MPEG-4 bit rate
  SettingBitrateList = 8,     ///< ascending bit rates, each followed by a comma, then the letter e
  SettingMAC = 9,             ///< hardware address; names the camera's preset file
};

/// Why a capability query failed, as ICapabilityObserver::OnQueryFailed gives it.
enum QueryFailure : u32 {
  QueryFailureLogin = 1,  ///< the camera wants other credentials
  QueryFailureOther = 3,  ///< nobody there, no camera of the family, or a reply that can't be used
};

/// Number of channel slots of one capture object; channel indexes run from 0 to 15.
inline constexpr u32 kMaxChannels = 16;

}  // namespace sarnevo
