// The road of a stream's packets to the host: an input chooses codec, layout, losses, frame ends, payloads
// and what the host answers.
#include <vector>

#include "FrameHost.h"
#include "FuzzTarget.h"
#include "video/FrameAssembly.h"

using kolvex_fuzz::Bytes;
using kolvex_fuzz::FrameHost;
using namespace sarnevo;

FUZZ_TARGET(FrameAssembly) {
  kolvex_fuzz::Reader reader(input);
  const u8 setting = reader.Byte();
  const u8 refusals = reader.Byte();
  const bool group1 = (setting & 2) != 0;
  FrameHost host(group1);
  Activity activity;
  FrameAssembly assembly({.allocator = &host, .sink = &host, .returns = std::make_shared<FrameReturns>()},
                         (setting & 1) != 0 ? CodecMJPEG : CodecMPEG4,
                         group1 ? JpegLayout::Group1 : JpegLayout::Group2, activity);
  std::vector<u8> payload;
  for (unsigned packets = 0; !reader.IsEmpty() && packets < 4096; ++packets) {
    const u8 how = reader.Byte();
    if ((how & 0x80) != 0) {
      assembly.Resynchronise();
    }
    const Bytes part = reader.Take(reader.Byte());
    // A short input reaches the limit of a frame by packets of many times its bytes.
    payload.assign(part.begin(), part.end());
    payload.resize(part.size() * ((how & 0x40) != 0 ? 64 : 1));
    host.AnswerWith(packets % 3 == 0 ? refusals : 0);
    assembly.Add(payload, (how & 1) != 0);
    const auto frame = host.Take();
    kolvex_fuzz::Check(!frame || (how & 1) != 0, "only a frame's end brings a frame");
    kolvex_fuzz::Check(!frame || frame->data.size() <= kMaxFrameBytes + 611, "a frame has its limit");
  }
}
