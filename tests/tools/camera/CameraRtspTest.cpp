#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"

namespace {

using namespace simcam;
using namespace simcam_test;

void Replace(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

/// The replies with names for what differs from run to run.
std::string Masked(std::string text, const Stream& stream) {
  Replace(text, std::to_string(stream.rtp.number()) + "-" + std::to_string(stream.rtcp.number()), "RTP-RTCP");
  Replace(text, stream.session, "ID");
  Replace(text, "\r\n", "\n");
  for (std::size_t at = text.find("Date: "); at != std::string::npos; at = text.find("Date: ", at + 6)) {
    const std::string date = text.substr(at + 6, text.find('\n', at) - at - 6);
    EXPECT_THAT(date, testing::MatchesRegex(
                          "[A-Z][a-z]{2}, [0-9]{2} [A-Z][a-z]{2} [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2} GMT"));
    text.replace(at + 6, date.size(), "NOW");
  }
  return text;
}

TEST(CameraRtsp, RepliesLineByLineAsEachGroupDoes) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .model = "P-400", .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .model = "P-405", .address = "127.0.2.1", .video = {.codec = Codec::Mpeg4}});

  Stream one("127.0.1.1", 1);
  const std::string onePause = one.Request("PAUSE");
  const std::string oneEnd = one.Request("TEARDOWN");
  EXPECT_EQ(Masked(one.describe + one.setup + one.play + onePause + oneEnd, one),
            "RTSP/1.0 200 OK\n"
            "CSeq: 1\n"
            "Content-Base: rtsp://127.0.1.1:554/object.sdp/\n"
            "Content-Type: application/sdp\n"
            "Content-Length: 115\n"
            "\n"
            "v=0\no=- 1 1 IN IP4 127.0.1.1\ns=Kolvex P-400\nc=IN IP4 0.0.0.0\nt=0 0\n"
            "m=video 0 RTP/AVP 26\na=control:trackID=0\n"
            "RTSP/1.0 200 OK\n"
            "CSeq: 2\n"
            "Transport: RTP/AVP;unicast;client_port=RTP-RTCP;server_port=6970-6971\n"
            "Session: ID\n"
            "\n"
            "RTSP/1.0 200 OK\nCSeq: 3\nSession: ID\n\n"
            "RTSP/1.0 200 OK\nCSeq: 4\nSession: ID\n\n"
            "RTSP/1.0 200 OK\nCSeq: 5\n\n");

  Stream two("127.0.2.1", 2);
  const std::string twoPause = two.Request("PAUSE");
  const std::string twoEnd = two.Request("TEARDOWN");
  EXPECT_EQ(Masked(two.describe + two.setup + two.play + twoPause + twoEnd, two),
            "RTSP/1.0 200 OK\n"
            "CSeq: 1\n"
            "Date: NOW\n"
            "Content-Base: rtsp://127.0.2.1:554/\n"
            "Content-Type: application/sdp\n"
            "Content-Length: 121\n"
            "\n"
            "v=0\no=- 1 1 IN IP4 127.0.2.1\ns=Kolvex P-405\nc=IN IP4 0.0.0.0\nt=0 0\n"
            "m=video 0 RTP/AVP 96\na=rtpmap:96 MP4V-ES/90000\n"
            "RTSP/1.0 200 OK\n"
            "CSeq: 2\n"
            "Date: NOW\n"
            "Transport: RTP/AVP;unicast;client_port=RTP-RTCP;server_port=6970-6971\n"
            "Session: ID\n"
            "\n"
            "RTSP/1.0 200 OK\nCSeq: 3\nDate: NOW\nSession: ID\n\n"
            "RTSP/1.0 200 OK\nCSeq: 4\nDate: NOW\nSession: ID\n\n"
            "RTSP/1.0 200 OK\nCSeq: 5\nDate: NOW\n\n");
}

TEST(CameraRtsp, RefusesWhatItDoesNotOffer) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  struct Row {
    const char* request;
    const char* status;
  };
  const Row rows[] = {
      {"DESCRIBE rtsp://127.0.1.1:554/ RTSP/1.0\r\nCSeq: 7\r\n\r\n", "404 Not Found\r\nCSeq: 7"},
      {"SETUP rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 7\r\n\r\n", "404 Not Found\r\nCSeq: 7"},
      {"SETUP rtsp://127.0.1.1:554/object.sdp/trackID=0 RTSP/1.0\r\nCSeq: 7\r\n"
       "Transport: RTP/AVP;unicast;client_port=0-0\r\n\r\n",
       "461 Unsupported Transport"},
      {"SETUP rtsp://127.0.1.1:554/object.sdp/trackID=0 RTSP/1.0\r\nCSeq: 7\r\n"
       "Transport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n",
       "461 Unsupported Transport"},
      {"PLAY rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 7\r\nSession: 1\r\n\r\n",
       "454 Session Not Found"},
      {"PLAY rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\n\r\n", "400 Bad Request"},
  };
  for (const Row& row : rows) {
    Wire wire("127.0.1.1", 554);
    wire.Send(row.request);
    EXPECT_TRUE(wire.ReadUntil("\r\n\r\n").starts_with(std::string("RTSP/1.0 ") + row.status)) << row.request;
    EXPECT_TRUE(camera.WaitForRequest(row.request, std::chrono::seconds(5)));
  }
}

}  // namespace
