#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "simcam/codec/JpegEncoder.h"
#include "simcam/codec/StreamFormat.h"

namespace simcam {

/// One encoded frame as RTP payloads, made once and shared by all who send it.
class PacketizedFrame {
 public:
  std::uint32_t counter = 0;      ///< the number in the picture
  bool key = true;                ///< a receiver may begin here
  std::uint8_t payloadType = 26;  ///< RFC 3551: 26 is JPEG; MPEG-4 takes 96, the first dynamic one
  std::chrono::steady_clock::time_point captured{};
  std::chrono::microseconds interval{};  ///< until the next frame, as planned

  std::size_t size() const { return ends_.size(); }
  std::size_t bytes() const { return data_.size(); }
  std::span<const std::uint8_t> payload(std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return std::span(data_).subspan(begin, ends_[index] - begin);
  }

  void Append(std::span<const std::uint8_t> bytes) { data_.insert(data_.end(), bytes.begin(), bytes.end()); }
  void EndPayload() { ends_.push_back(data_.size()); }

 private:
  std::vector<std::uint8_t> data_;
  std::vector<std::size_t> ends_;  // where each payload ends in data_
};

inline constexpr std::size_t kMaxPayload = 1400;  // bytes; leaves room for the headers within an Ethernet frame

/// RFC 2435: every payload begins with the main JPEG header, the first one goes on with the quantization
/// table header and both tables. In the commented layout 105 bytes with a JPEG comment segment follow.
void PacketizeJpeg(const EncodedJpeg& jpeg, const StreamFormat& format, std::string_view comment,
                   PacketizedFrame& into);

/// The bytes of the elementary stream as they are, cut into pieces.
void PacketizeMpeg4(std::span<const std::uint8_t> frame, PacketizedFrame& into);

}  // namespace simcam
