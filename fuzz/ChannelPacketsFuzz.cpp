// Datagrams through a camera channel that streams: an input chooses group, codec, sequence numbers, markers,
// sizes, loss, whole datagrams of its own, and what the host answers. What reaches the host is compared, packet by
// packet, with what a model says that it has to be.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FrameHost.h"
#include "FuzzTarget.h"
#include "StreamModel.h"
#include "driver/CKolvexIPCaptureDriver.h"
#include "protocols/CRTPReceiver.h"
#include "support/FakeHost.h"
#include "support/ScriptedCamera.h"
#include "video/CGroup1CameraChannel.h"
#include "video/CGroup2CameraChannel.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using kolvex_fuzz::FrameHost;
using kolvex_fuzz::StreamModel;
using namespace sarnevo;
using namespace std::chrono_literals;

// A channel that has come up as it does in use, over HTTP and RTSP with a scripted camera, and streams from then on. Its own port stays silent: the datagrams come in one layer above the socket, on the
// fuzzer's thread, through a receiver of the same kind.
class Stream {
 public:
  Stream(bool jpeg, bool group1)
      : model(jpeg, group1), host(group1), jpeg_(jpeg), group1_(group1), camera_(group1 ? 1 : 2, Address()) {
    kolvex_test::FakeParams params;
    params.address = camera_.Address();
    params.port = camera_.HttpPort();
    params.codec = jpeg ? CodecMJPEG : CodecMPEG4;
    params.settings = kolvex_test::CameraSettings(group1 ? "1" : "2", "10000");
    driver_.SetChannelTiming({.streamPass = 100ms,
                              .pause = 1ms,
                              .receiveTimeout = 1h,
                              .startingReceiveTimeout = 2h,
                              .packetTimeout = 1h});
    Check(driver_.Open(nullptr, &host, &params), "the driver opens");
    if (group1) {
      channel_ = std::make_shared<CGroup1CameraChannel>(0, &driver_, &host, std::make_shared<FrameReturns>());
    } else {
      channel_ = std::make_shared<CGroup2CameraChannel>(0, &driver_, &host, std::make_shared<FrameReturns>());
    }
    receiver_.SetUser(channel_.get());
    Check(channel_->Start(40, 352, 288, 60), "the channel starts");
    Check(camera_.log.WaitFor("PLAY"), "the stream starts");
    // The gate opens a moment after the reply to PLAY.
    for (int i = 0; !Probe(); ++i) {
      Check(i < 10'000, "a good frame passes");
      std::this_thread::sleep_for(1ms);
    }
  }

  /// The host's answer and the datagram, and what has to come of it.
  void Receive(std::vector<u8> datagram, u8 answer) {
    host.AnswerWith(answer);
    const auto wanted = model.Add(datagram, answer);
    Deliver(datagram);
    const auto seen = host.Take();
    Check(wanted.has_value() == seen.has_value(), "a frame comes where one is due, and nowhere else");
    if (seen) {
      Compare(*wanted, *seen);
    }
  }

  /// Back to how a stream begins: losses, with a number 0 at the end that hides what comes before the input.
  void Rewind() {
    host.AnswerWith(0);
    Receive(Packet(100, false, {}), 0);
    Receive(Packet(200, false, {0, 0, 1, 0xB6}), 0);
    Receive(Packet(0, false, {1}), 0);
  }

  static std::vector<u8> Packet(u16 sequence, bool marker, const std::vector<u8>& payload) {
    std::vector<u8> datagram{0x80, static_cast<u8>(marker ? 0x9A : 0x1A), static_cast<u8>(sequence >> 8),
                             static_cast<u8>(sequence)};
    datagram.resize(12);
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    return datagram;
  }

  StreamModel model;
  FrameHost host;

 private:
  // Port 554 is fixed, so that each camera has an address of its own.
  std::string Address() const { return std::string("127.0.9.") + (jpeg_ ? "1" : "2") + (group1_ ? "1" : "2"); }

  void Deliver(const std::vector<u8>& datagram) {
    // Of exactly its size, so that the sanitizer sees a read past it.
    const std::unique_ptr<u8[]> exact(new u8[datagram.size()]);
    std::memcpy(exact.get(), datagram.data(), datagram.size());
    receiver_.DataReceived(&receiver_.Port(), nullptr, exact.get(), static_cast<u32>(datagram.size()));
  }

  bool Probe() {
    const std::vector<u8> frame =
        jpeg_ ? kolvex_test::JpegFramePacket(group1_ ? 1 : 2) : kolvex_test::Mpeg4KeyFramePacket();
    bool passed = false;
    for (const u16 sequence : std::array<u16, 3>{0, 1, 2}) {
      Deliver(Packet(sequence, true, frame));
      passed = host.Take().has_value();
    }
    model.SetLast(2);
    return passed;
  }

  void Compare(const std::vector<u8>& wanted, const FrameHost::Seen& seen) const {
    if (!jpeg_) {
      Check(seen.data == wanted, "an MPEG-4 frame is what the camera sent");
      Check(seen.code == (model.IsKey() ? FrameFourCCMPEG4Key : FrameFourCCMPEG4Inter),
            "the kind of the frame");
      Check(model.width == 0 || (seen.width == model.width && seen.height == model.height),
            "a frame has the size of the last key frame");
      return;
    }
    Check(seen.code == FrameFourCCJPEG && seen.width == wanted[6] * 8U && seen.height == wanted[7] * 8U,
          "a JPEG frame has the size that the camera said");
    const auto parts = kolvex_fuzz::JpegCheck::PartsOf(seen.data, group1_, seen.width, seen.height);
    const Bytes sent(wanted);
    Check(std::ranges::equal(parts.luminance, sent.subspan(12, 64)) &&
              std::ranges::equal(parts.chrominance, sent.subspan(76, 64)),
          "the tables are the camera's");
    Check(parts.sampling == (sent[4] == 0 ? 0x21 : 0x22), "the sampling is the camera's");
    Check(std::ranges::equal(parts.scan, sent.subspan(group1_ ? 140 : 245)),
          "the scan is the camera's, to its end");
  }

  const bool jpeg_;
  const bool group1_;
  kolvex_test::ScriptedCamera camera_;
  CKolvexIPCaptureDriver driver_;
  std::shared_ptr<CBaseCameraChannel> channel_;
  CRTPReceiver receiver_;
};

// Never ended, so that no thread of a stream outlives what the client library frees at the process's end.
Stream& StreamOf(u8 setting) {
  static auto& streams = *new std::array<Stream*, 4>{};
  Stream*& stream = streams[setting & 3];
  if (stream == nullptr) {
    stream = new Stream((setting & 1) != 0, (setting & 2) != 0);
  }
  return *stream;
}

// How the next packet of an input is made, by the bits of a byte.
enum How : u8 { Marker = 1, Answer = 2, Jump = 4, Long = 8, Raw = 16, Step = 32, Wide = 64 };

}  // namespace

FUZZ_TARGET(ChannelPackets) {
  kolvex_fuzz::Reader reader(input);
  Stream& stream = StreamOf(reader.Byte());
  stream.Rewind();
  u16 sequence = 0;
  for (int packets = 0; !reader.IsEmpty() && packets < 1024; ++packets) {
    const u8 how = reader.Byte();
    const u8 answer = (how & Answer) != 0 ? reader.Byte() & 63 : 0;
    sequence = static_cast<u16>(sequence + 1 + ((how & Step) != 0 ? reader.Byte() : 0));
    if ((how & Jump) != 0) {
      sequence = static_cast<u16>(reader.Byte() << 8 | reader.Byte());
    }
    // A short input reaches the limit of a frame by packets of many times its bytes.
    const std::size_t size = reader.Byte() + ((how & Wide) != 0 ? 256U * reader.Byte() : 0U);
    const Bytes part = reader.Take(size);
    std::vector<u8> payload(part.begin(), part.end());
    payload.resize(payload.size() * ((how & Long) != 0 ? 250 : 1));
    if ((how & Raw) == 0) {
      payload = Stream::Packet(sequence, (how & Marker) != 0, payload);
    }
    if (!payload.empty() &&
        payload.size() < 65'508) {  // an empty one never gets here, nor one that UDP can't carry
      stream.Receive(std::move(payload), answer);
    }
  }
}
