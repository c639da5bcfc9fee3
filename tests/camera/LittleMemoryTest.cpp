#include <gtest/gtest.h>

#include <new>
#include <string>

#include "camera/CGroup1CameraProperties.h"
#include "support/CgiCamera.h"
#include "support/Failures.h"
#include "support/RecordingCapabilities.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;

// The address is in two chunks. A long extension between them takes more memory when the first one has been read.
TEST(Group1Properties, AreNotReadFromAReplyThatWantOfMemoryCut) {
  CgiReplies replies = Group1Replies();
  replies["/network.cgi?action=retrieve"] =
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nHWADDR0=00:11:22\r\n9;" +
      std::string(9'000, 'x') + "\r\n:33:44:55\r\n0\r\n\r\n";
  const CgiCamera camera(replies);
  int refused = 0;
  bool failed = true;
  for (long n = 1; failed; ++n) {
    SCOPED_TRACE(n);
    Web::HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 5000, 16, 0);
    CGroup1CameraProperties properties(0);
    bool read = false;
    Fail(Resource::Memory, n, false);
    try {
      const Side inside(true);
      u32 level = 0;
      read = properties.ReadProperties(&request, &properties, &level);
    } catch (const std::bad_alloc&) {
    }
    Heal();
    failed = Strikes() != 0;
    ASSERT_TRUE(read || failed);
    refused += read ? 0 : 1;
    RecordingCapabilities host;
    ASSERT_TRUE(properties.PublishCapabilities(&host, 0, &request));
    EXPECT_TRUE(!read || host.Transcript().ends_with("; value 001122334455")) << host.Transcript();
  }
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace sarnevo
