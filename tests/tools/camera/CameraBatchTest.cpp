#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CameraClient.h"
#include "simcam/stream/DatagramBatch.h"

namespace {

using namespace simcam;
using namespace simcam_test;

TEST(CameraBatch, ArrivesAsSeparateDatagramsWhateverTheirSizes) {
  const std::vector<std::vector<std::size_t>> batches = {{1400},
                                                         {1400, 1400, 1400},
                                                         {1400, 1400, 7},
                                                         {7, 1400},
                                                         {1400, 7, 1400},
                                                         {1, 1},
                                                         std::vector<std::size_t>(32, 1400)};
  const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  Port port;
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port.number());
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (const std::vector<std::size_t>& sizes : batches) {
    std::vector<std::vector<std::uint8_t>> payloads;
    for (const std::size_t size : sizes) {
      payloads.emplace_back(size, static_cast<std::uint8_t>(payloads.size() + 1));
    }
    DatagramBatch batch;
    for (const std::vector<std::uint8_t>& payload : payloads) {
      std::fill_n(batch.Add(payload), DatagramBatch::kHeaderBytes, payload[0]);
    }
    EXPECT_EQ(batch.Send(socket, to), 0U);
    for (const std::vector<std::uint8_t>& payload : payloads) {
      const std::optional<Datagram> datagram = port.Receive();
      ASSERT_TRUE(datagram);
      EXPECT_EQ(datagram->bytes,
                std::vector<std::uint8_t>(payload.size() + DatagramBatch::kHeaderBytes, payload[0]));
    }
  }
  close(socket);
}

TEST(CameraBatch, CountsTheErrorsOfAClientThatIsGone) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  {
    const Port gone;
    to.sin_port = htons(gone.number());
  }
  ASSERT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  const std::vector<std::uint8_t> payload(100);
  unsigned errors = 0;
  for (int i = 0; i < 3; ++i) {
    DatagramBatch batch;
    batch.Add(payload);
    errors += batch.Send(socket, to);
  }
  EXPECT_GT(errors, 0U);
  close(socket);
}

}  // namespace
