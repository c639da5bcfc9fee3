#include <gtest/gtest.h>

#include <regex>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"

namespace {

using namespace simcam;
using namespace simcam_test;

/// What differs from run to run, by name.
std::string Masked(std::string text, const Stream& stream) {
  const auto replace = [&text](const std::string& what, const char* by) {
    text = std::regex_replace(text, std::regex(what), by);
  };
  replace(std::to_string(stream.rtp.number()) + "-" + std::to_string(stream.rtcp.number()), "RTP-RTCP");
  replace(stream.session, "ID");
  replace("[A-Z][a-z]{2}, \\d\\d [A-Z][a-z]{2} \\d{4} \\d\\d:\\d\\d:\\d\\d GMT", "NOW");
  replace("Content-Length: \\d+", "Content-Length: N");
  replace("\r\n", "\n");
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
            "Content-Length: N\n"
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
            "Content-Length: N\n"
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
