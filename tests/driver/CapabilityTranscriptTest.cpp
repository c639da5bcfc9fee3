// What a host is told about each model of the family, call by call. Lines that begin with PAL or NTSC are for
// that video standard alone.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "driver/CapabilityQuery.h"
#include "platform/Event.h"
#include "support/RecordingCapabilities.h"
#include "support/CgiCamera.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;

struct Model {
  const char* name;
  kolvex_test::CgiReplies replies;
  std::string transcript;
};

const std::string kGroup1 = R"(model Kolvex P-400/413/423/426/428/463/463DW/1401
capability 11 = 0
capability 12 = 0
capability 0 = 1
capability 2 = 2
capability 3 = 1
capability 1 = 1
capability 4 = 1
capability 7 = 1
capability 6 = 1
PAL  resolution: 176x144, 176, 144, 40
PAL  resolution: 352x288, 352, 288, 40
PAL  resolution: 720x576, 720, 576, 40
NTSC resolution: 176x112, 176, 112, 33
NTSC resolution: 352x240, 352, 240, 33
NTSC resolution: 720x480, 720, 480, 33
field 1: text 127.0.0.1
field 2: text PORT
field 3:
field 4:
PAL  list 1: default 200; 333; 250; 200; 166; 142; 125; 100; 83; 66; 40
NTSC list 1: default 200; 333; 250; 200; 166; 142; 125; 100; 83; 66; 40; 33
list 3: default 60; 10; 20; 30; 40; 50; 60; 70; 80; 90; 100
setting 1: name Network timeout; B 0; A 0; value 5000
setting 2: name Camera group; B 0; A 0; value 1
PAL  setting 3: name Video standard; B 0; A 0; value 1
NTSC setting 3: name Video standard; B 0; A 0; value 0
setting 4: name MaxQualityJPEG; B 0; A 0; value 16
setting 5: name MinQualityJPEG; B 0; A 0; value 4
setting 6: name MaxQualityMPEG; B 0; A 0; value 3000
setting 7: name MinQualityMPEG; B 0; A 0; value 256
setting 8: name BitrateList; B 0; A 1; value 256,512,768,1000,1500,2000,3000,e
setting 9: name MAC; B 0; A 1; value 001122aaBBcc
)";

// The models of group 2 differ in name, inputs and outputs, motors and sizes.
std::string Group2(const std::string& model, const std::string& ownCapabilities, const std::string& sizes) {
  return "model Kolvex " + model + "\ncapability 11 = 0\ncapability 12 = 0\ncapability 0 = 1\n" +
         ownCapabilities + "capability 4 = 1\ncapability 7 = 1\ncapability 6 = 1\n" + sizes +
         R"(field 1: text 127.0.0.1
field 2: text PORT
field 3:
field 4:
PAL  list 1: default 200; 200; 166; 142; 125; 111; 100; 66; 50; 40
NTSC list 1: default 200; 200; 166; 142; 125; 111; 100; 66; 40; 33
list 3: default 60; 10; 20; 30; 40; 50; 60; 70; 80; 90; 100
setting 1: name Network timeout; B 0; A 0; value 5000
setting 2: name Camera group; B 0; A 0; value 2
PAL  setting 3: name Video standard; B 0; A 0; value 1
NTSC setting 3: name Video standard; B 0; A 0; value 0
)";
}

const std::string kInputAndOutput = "capability 2 = 1\ncapability 3 = 1\n";

const std::string kDigitalSizes = R"(PAL  resolution: 640x480, 640, 480, 40
PAL  resolution: 320x240, 320, 240, 40
PAL  resolution: 160x120, 160, 120, 40
NTSC resolution: 640x480, 640, 480, 33
NTSC resolution: 320x240, 320, 240, 33
NTSC resolution: 160x120, 160, 120, 33
)";

const std::string kAnalogueSizes = R"(PAL  resolution: 176x144, 176, 144, 40
PAL  resolution: 352x288, 352, 288, 40
PAL  resolution: 704x576, 704, 576, 40
PAL  resolution: 720x576, 720, 576, 40
NTSC resolution: 176x120, 176, 120, 33
NTSC resolution: 352x240, 352, 240, 33
NTSC resolution: 704x480, 704, 480, 33
NTSC resolution: 720x480, 720, 480, 33
)";

// The lines of one video standard.
std::string Expected(const std::string& table, bool isNTSC, std::uint16_t port) {
  std::istringstream lines(table);
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    const bool pal = line.starts_with("PAL  ");
    const bool ntsc = line.starts_with("NTSC ");
    if (!(isNTSC ? pal : ntsc)) {
      text += (text.empty() ? "" : "\n") + (pal || ntsc ? line.substr(5) : line);
    }
  }
  text.replace(text.find("PORT"), 4, std::to_string(port));
  return text;
}

class Observer : public ipcapture::ICapabilityObserver {
 public:
  void OnQueryDone() override { done.Set(); }
  void OnQueryFailed(u32 level, const char* text) override { ADD_FAILURE() << level << " " << text; }
  platform::Event done;
};

TEST(CapabilityTranscript, TellsTheHostAboutEachModel) {
  const Model models[] = {
      {"group 1", kolvex_test::Group1Replies(), kGroup1},
      {"71", kolvex_test::Group2Replies("71"), Group2("P-405", "", kDigitalSizes)},
      {"68", kolvex_test::Group2Replies("68"),
       Group2("P-405M", "", kDigitalSizes + "resolution: 1280x1024, 1280, 1024, 100\n")},
      {"81", kolvex_test::Group2Replies("81"),
       Group2("P-410", kInputAndOutput + "capability 1 = 1\n", kAnalogueSizes)},
      {"67", kolvex_test::Group2Replies("67"), Group2("P-412", kInputAndOutput, kAnalogueSizes)},
  };
  for (const Model& model : models) {
    for (const bool isNTSC : {false, true}) {
      SCOPED_TRACE(std::string(model.name) + (isNTSC ? " NTSC" : " PAL"));
      const kolvex_test::CgiCamera camera(model.replies);
      Observer observer;
      kolvex_test::RecordingCapabilities host;
      CapabilityQuery query;
      ASSERT_TRUE(query.Init(&observer, isNTSC));
      ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "root", "pass", &host));
      EXPECT_EQ(observer.done.Wait(10s), platform::WaitResult::Signalled);
      query.Uninit();
      EXPECT_EQ(host.Transcript(), Expected(model.transcript, isNTSC, camera.Port()));
      for (const std::string& head : camera.Heads()) {
        EXPECT_NE(head.find("\r\nAuthorization: Basic cm9vdDpwYXNz\r\n"), head.npos) << head;
      }
    }
  }
}

}  // namespace
}  // namespace sarnevo
