#include "protocols/RtspReply.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sarnevo::rtsp {
namespace {

using namespace std::string_literals;

template <typename Value>
std::string Show(const std::optional<Value>& value) {
  return value ? testing::PrintToString(*value) : "none";
}

std::string Show(const std::optional<StatusLine>& line) {
  return line ? std::string(line->version) + "|" + std::to_string(line->statusCode) + "|" +
                    std::string(line->reason)
              : "none";
}

std::string Show(const std::optional<PortPair>& ports) {
  return ports ? std::to_string(ports->rtp) + "-" + std::to_string(ports->rtcp) : "none";
}

struct Case {
  std::string line;
  std::string expected;
};

template <typename Parse>
void Check(const std::vector<Case>& cases, Parse parse) {
  for (const Case& each : cases) {
    EXPECT_EQ(Show(parse(each.line)), each.expected) << each.line;
  }
}

TEST(RtspReply, IsReadAsTheCamerasWriteIt) {
  Check({{"RTSP/1.0 200 OK", "RTSP/1.0|200|OK"},
         {" \tRTSP/1.0   200  Fine indeed", "RTSP/1.0|200|Fine"},
         {"RTSP/1.0 200OK", "RTSP/1.0|200|OK"},
         {"RTSP/1.0 404 Not Found", "none"},
         {"RTSP/1.0 404 see200", "RTSP/1.0|404|see200"},  // 200 anywhere is enough
         {"RTSP/1.0 200", "none"},
         {"", "none"},
         {"ABCDEFGHIJKLMN 200 ABCDEFGHIJKLMN", "ABCDEFGHIJKLMN|200|ABCDEFGHIJKLMN"},
         {"ABCDEFGHIJKLMNO 200 OK", "none"},
         {"RTSP/1.0 200 ABCDEFGHIJKLMNO", "none"}},
        ParseStatusLine);
  Check({{"x +7rest", "7"},
         {"CSeq:7", "none"},
         {"CSeq: - 7", "none"},
         {"CSeq: 4294967296", "2147483647"},
         {"CSeq: -99999999999999999999999999", "-2147483648"},
         {std::string(254, 'a') + " 1", "1"},
         {std::string(255, 'a') + " 1", "none"}},
        ParseNumberHeader);
  Check({{"Session: 123 ; timeout=60", "\"123\""}, {"a\tb", "\"b\""}, {"Session: ", "none"}}, ParseTextHeader);
  Check({{"RTP/AVP;unicast;client_port=3556-3557;server_port=1-2", "3556-3557"},
         {"client_port=3556-3557", "none"},  // not without the ";"
         {"client_port=3556;server_port=6000-6001;", "3556-6001"},
         {"client_port=3556-0;", "none"},
         {"client_port=-1-2;", "none"},
         {"client_port=99999999999-1;", "2147483647-1"},
         {"client_port=", "none"}},
        ParseClientPorts);
  Check({{"x;server_port=6000-6001;ssrc=AA", "6000-6001"},
         {"x;server_port=6000-", "none"},
         {"x;server_port=0-1", "none"},
         {"x;client_port=1-2;", "none"}},
        ParseServerPorts);
}

}  // namespace
}  // namespace sarnevo::rtsp
