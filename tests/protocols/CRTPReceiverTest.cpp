#include "protocols/CRTPReceiver.h"

#include <gtest/gtest.h>

#include <vector>

#include "protocols/CRTPPacket.h"
#include "support/HostLog.h"

namespace sarnevo {
namespace {

using platform::Socket;
using platform::SocketAddress;

class FakeChannel : public IRTPReceiverUser {
 public:
  void PacketReceived(CRTPReceiver* receiver, const sockaddr_in* from, const CRTPPacket* packet) override {
    calls.Add("PacketReceived " + std::to_string(packet->sequence) + " of " +
              std::to_string(packet->payloadSize) +
              (from != nullptr && receiver == expected ? "" : " from elsewhere"));
  }
  void ReceiveTimeout() override { calls.Add("ReceiveTimeout"); }
  void SocketClosed(CRTPReceiver* receiver) override {
    calls.Add(receiver == expected ? "SocketClosed" : "SocketClosed of another");
  }

  CRTPReceiver* expected = nullptr;
  kolvex_test::HostLog calls;
};

TEST(CRTPReceiver, HandsUpWhatIsRtpAndForwardsTheRest) {
  FakeChannel channel;
  {
    CRTPReceiver receiver;
    channel.expected = &receiver;
    EXPECT_EQ(receiver.Port().ReadSize(), 4096U);
    ASSERT_EQ(receiver.Port().Open("127.0.0.1", 0), CUDPPort::Opened);
    Socket camera = Socket::CreateUdp();
    const auto send = [&](const std::vector<u8>& datagram) {
      EXPECT_EQ(camera.SendTo(datagram, *SocketAddress::Parse("127.0.0.1", receiver.Port().LocalPort())),
                platform::SocketError::None);
    };
    receiver.SetUser(&channel);
    send({0x80, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0});        // nothing behind the header
    send({0x40, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 1});     // version 1
    send({0x80, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2});  //
    EXPECT_TRUE(channel.calls.WaitFor("PacketReceived"));
    receiver.ReceiveTimeout();
  }
  EXPECT_EQ(channel.calls.Text(), "PacketReceived 9 of 2\nReceiveTimeout\nSocketClosed\n");
}

}  // namespace
}  // namespace sarnevo
