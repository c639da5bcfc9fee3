#pragma once

#include <cstddef>
#include <vector>

#include "kolvex/Types.h"

namespace kolvex_bench {

using sarnevo::u8;
using Payload = std::vector<u8>;

enum class FrameKind { Jpeg, Mpeg4Key, Mpeg4Inter };

/// The RTP payloads of one frame of about @p bytes, as a group 1 camera sends them: 1,400 bytes each but the
/// last. JPEG is 1280x720 after RFC 2435 with the tables in the first packet. The picture's own bytes are
/// filler: nothing on the road to the host looks at them.
std::vector<Payload> MakeFrame(FrameKind kind, std::size_t bytes);

}  // namespace kolvex_bench
