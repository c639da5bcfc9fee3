// What a camera says to the CGI requests, through the HTTP client to whoever asks: the properties of both groups,
// the look for the group, the digital inputs of both. A reply is a body, or the whole of it if it begins with
// "HTTP/".
#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "FuzzTarget.h"
#include "HttpScript.h"
#include "camera/CGroup1CameraProperties.h"
#include "camera/CGroup2CameraProperties.h"
#include "camera/CgiText.h"
#include "camera/DetectCameraGroup.h"
#include "camera/RequestPolicy.h"
#include "driver/CKolvexIPCaptureDriver.h"
#include "device/DecimalText.h"
#include "io/CGroupDigitalIO.h"
#include "support/FakeHost.h"
#include "support/RecordingCapabilities.h"

namespace {

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;
using namespace sarnevo;

constexpr u32 kTimeout = 3;  // milliseconds; a server that keeps a connection open costs as much
constexpr u32 kLongTimeout = 10'000;
constexpr u16 kPort = 80;

std::string Reply(Bytes part) {
  std::string text(part.begin(), part.end());
  return text.starts_with("HTTP/") ? text : "HTTP/1.1 200 OK\r\n\r\n" + text;
}

bool Says(const std::vector<std::string>& replies, std::string_view word) {
  return std::any_of(replies.begin(), replies.end(),
                     [word](const std::string& reply) { return reply.find(word) != reply.npos; });
}

// A line of the host's transcript that begins with @p begin; empty when there is none.
std::string LineOf(const std::string& transcript, const std::string& begin) {
  const std::size_t at = ("\n" + transcript).find("\n" + begin);
  return at == transcript.npos || at > transcript.size()
             ? ""
             : transcript.substr(at, transcript.find('\n', at) - at);
}

// What a reader of properties looks at, of replies that are plain bodies of a server which closes: nothing else can
// happen to them. Empty when one isn't.
std::vector<std::string> PlainTexts(const std::vector<std::string>& replies) {
  constexpr std::string_view kPlain = "HTTP/1.1 200 OK\r\n\r\n";
  std::vector<std::string> texts;
  for (const std::string& reply : replies) {
    if (!reply.starts_with(kPlain)) {
      return {};
    }
    texts.emplace_back(reply.substr(kPlain.size(), kMostPropertyBytes).c_str());
  }
  return texts;
}

std::optional<std::string> ValueOf(const std::string& text, const char* key, char stop) {
  std::array<char, 1024> value{};
  return ExtractCgiValue(text, key, value, stop) ? std::optional<std::string>(value.data()) : std::nullopt;
}

u32 CountOf(const std::string& text, const std::string& word) {
  u32 count = 0;
  for (std::size_t at = text.find(word); at != text.npos; at = text.find(word, at + word.size())) {
    ++count;
  }
  return count;
}

void CheckCapability(const std::string& transcript, u32 number, u32 value) {
  const std::string begin = "capability " + std::to_string(number) + " = ";
  Check(LineOf(transcript, begin) == (value == 0 ? "" : begin + std::to_string(value)),
        "a capability is what the replies say");
}

template <typename Properties>
std::string ReadAndPublish(Web::HttpRequest& request, const std::vector<std::string>& replies, u32 isNTSC) {
  Properties properties(isNTSC);
  u32 level = 0;
  const bool read = properties.ReadProperties(&request, &properties, &level);
  Check(read || level == QueryFailureLogin || level == QueryFailureOther, "a failure has its reason");
  if (!read) {
    return {};
  }
  kolvex_test::RecordingCapabilities host;
  Check(properties.PublishCapabilities(&host, isNTSC, &request), "what was read is published");
  std::size_t said = 0;
  for (const auto& reply : replies) {
    said += reply.size();
  }
  Check(properties.GetChannelCount() <= 1, "a camera has one channel");
  Check(properties.GetInputCount() <= said && properties.GetOutputCount() <= said, "no more pins than words");
  std::size_t resolutions = 0;
  for (auto* info = properties.GetFirstResolution(); info != nullptr; info = properties.GetNextResolution()) {
    Check(info->GetWidth() > 0 && info->GetHeight() > 0 && !info->FrameIntervals().empty(),
          "a real resolution");
    if constexpr (std::is_same_v<Properties, CGroup1CameraProperties>) {
      std::string intervals;
      for (u32 one = info->GetFirstFrameInterval(); one != 0; one = info->GetNextFrameInterval()) {
        intervals += std::to_string(one) + " ";
      }
      Check(intervals == (isNTSC != 0 ? "1000 500 333 250 200 166 142 100 66 33 "
                                      : "1000 500 333 250 200 166 125 83 40 "),
            "the standard's intervals");
    }
    ++resolutions;
  }
  Check(resolutions >= 3, "a camera of the family has resolutions");
  Check(!properties.GetModel().empty() && LineOf(host.Transcript(), "model ").size() > 6, "the model is known");
  Check(host.Transcript().find("secret") == std::string::npos || Says(replies, "secret"),
        "no password is published");
  return host.Transcript();
}

void ReadGroup1(Web::HttpRequest& request, const std::vector<std::string>& replies, u32 isNTSC,
                const std::vector<std::string>& texts) {
  const std::string transcript = ReadAndPublish<CGroup1CameraProperties>(request, replies, isNTSC);
  const auto wanted = texts.size() < 5 ? std::nullopt : ValueOf(texts[4], "HWADDR0", '&');
  Check(texts.size() < 5 || wanted.has_value() != transcript.empty(), "all is read when there is an address");
  if (transcript.empty()) {
    return;
  }
  Check(Says(replies, "HWADDR0"), "nothing is read from a camera that doesn't say its address");
  const std::string begin = "setting 9: name MAC; B 0; A 1; value ";
  const std::size_t at = transcript.rfind(begin);
  Check(at != std::string::npos, "the address is published");
  const std::string mac = transcript.substr(at + begin.size());
  Check(mac.size() < 1024 && mac.find_first_of(":&\r\n") == std::string::npos,
        "the address is one bounded word");
  if (wanted) {
    Check(mac == RemoveCharacters(*wanted, ":"), "the address is what the camera says");
    CheckCapability(transcript, 1,
                    ParseDecimal(ValueOf(texts[0], "serial_device", '&').value_or("").c_str()) != 0);
    CheckCapability(transcript, 2, CountOf(texts[2], "gpio"));
    CheckCapability(transcript, 3, CountOf(texts[2], "relay"));
    CheckCapability(transcript, 4, ValueOf(texts[1], "aformat", '&').has_value());
  }
}

void ReadGroup2(Web::HttpRequest& request, const std::vector<std::string>& replies, u32 isNTSC,
                const std::vector<std::string>& texts) {
  const std::string transcript = ReadAndPublish<CGroup2CameraProperties>(request, replies, isNTSC);
  Check(transcript.empty() || Says(replies, "CameraType"), "a model is what the camera says");
  if (texts.size() >= 2) {
    const i32 number = ParseDecimal(ValueOf(texts[1], "CameraType", '<').value_or("").c_str()) & 0xFF;
    const std::map<i32, std::string> models{{71, "P-405"}, {68, "P-405M"}, {81, "P-410"}, {67, "P-412"}};
    const auto model = models.find(number);
    Check(LineOf(transcript, "model ") == (model != models.end() ? "model Kolvex " + model->second : ""),
          "a model goes by the low 8 bits of its number");
  }
}

// Only group 2 has the first request; of group 1's reply to the other one all keys count.
void Detect(Web::HttpRequest& request, const std::vector<std::string>& replies) {
  const u32 group = DetectCameraGroup(&request);
  Check(group <= 2, "a group is 1, 2 or none");
  if (!PlainTexts({replies[0]}).empty()) {
    Check(group == 2, "whoever has the first request is of group 2");
  } else if (replies.size() >= 2 && replies[0].starts_with("HTTP/1.1 404 No\r\n\r\n")) {
    if (const std::vector<std::string> texts = PlainTexts({replies[1]}); !texts.empty()) {
      const std::string text = ToLowerText(texts[0]);
      bool all = true;
      for (const char* const key : {"ret", "method", "servertime", "serverdate"}) {
        all = all && !GetCgiValue(text, key, "=", "\r\n &").empty();
      }
      Check(group == (all ? 1U : 0U), "group 1 answers with all keys");
    }
  }
}

// The words of the two groups' inputs.
constexpr DigitalIOWords kGroup1Words{"", "", "/gpio.cgi?action=retrieve", "gpio", "", "&"};
constexpr DigitalIOWords kGroup2Words{"", "", "/GetGPIO.cgi", "Input", "_Sensor", "<>"};

// The inputs of a camera, polled on the fuzzer's thread.
class Inputs : public CGroupDigitalIO, public ICaptureIOCallback {
 public:
  Inputs(const DigitalIOWords& words, CKolvexIPCaptureDriver* driver)
      : CGroupDigitalIO(words, driver, 1000, 1000), words_(words) {
    SetCallback(this);
  }

  void Poll(u32 count) {
    reported_.clear();
    Check(ReadInputs(count), "a failed read isn't reported");
    Check(reported_.empty() || reported_.size() <= count, "each input is reported once");
    for (const auto& [index, state] : reported_) {
      Check(index < count && (state == IOStateLow || state == IOStateHigh), "an input has one of two states");
      const auto known = states_.find(index);
      Check(known == states_.end() || known->second != state, "only a change is reported");
      states_[index] = state;
    }
    Check(states_.empty() || states_.size() == count, "a reply has every input");
  }
  // After a poll whose reply was @p text.
  void CheckStates(const std::string& text) {
    for (const auto& [index, state] : states_) {
      const std::string key = words_.inputKey + std::to_string(index + 1) + words_.inputKeyEnd;
      const bool isLow = GetCgiValue(text, key, "=", words_.terminators).find('0') != std::string::npos;
      Check((state == IOStateLow) == isLow, "an input is low when there is a zero in its value");
    }
  }
  void OnInputChanged(u32 index, u32 state) override {
    Check(reported_.emplace(index, state).second, "each input is reported once");
  }
  void OnIOFailure() override { Check(false, "a failed read isn't reported"); }

 private:
  const DigitalIOWords& words_;
  std::map<u32, u32> reported_;
  std::map<u32, u32> states_;
};

// The host's drivers of a camera that is waited for, and of one that isn't.
CKolvexIPCaptureDriver& DriverOf(bool keepsOpen) {
  static CKolvexIPCaptureDriver drivers[2];
  static const bool open = [] {
    kolvex_test::FakeParams params;
    params.settings[SettingNetworkTimeout] = std::to_string(kLongTimeout);
    const bool first = drivers[0].Open(nullptr, nullptr, &params);
    params.settings[SettingNetworkTimeout] = std::to_string(kTimeout);
    return drivers[1].Open(nullptr, nullptr, &params) && first;
  }();
  Check(open, "the drivers open");
  return drivers[keepsOpen ? 1 : 0];
}

void PollInputs(const DigitalIOWords& words, bool keepsOpen, std::size_t polls,
                const std::vector<std::string>& texts) {
  Inputs inputs(words, &DriverOf(keepsOpen));
  for (std::size_t i = 0; i < polls; ++i) {
    inputs.Poll(4);
    // An empty reply is none, and after so many bytes the readers' limits differ.
    if (i < texts.size() && !texts[i].empty() && texts[i].size() < 65'000) {
      inputs.CheckStates(texts[i]);
    }
  }
}

}  // namespace

FUZZ_TARGET(CameraReplies) {
  kolvex_fuzz::Reader reader(input);
  const u8 what = reader.Byte();
  std::vector<std::string> replies;
  for (const Bytes part : kolvex_fuzz::SplitReplies(reader.Rest())) {
    replies.push_back(Reply(part));
  }
  std::vector<Bytes> parts;
  for (const std::string& reply : replies) {
    parts.emplace_back(reinterpret_cast<const u8*>(reply.data()), reply.size());
  }
  kolvex_fuzz::HttpScript script(std::move(parts), (what & 0x80) != 0);
  const bool keepsOpen = (what & 0x80) != 0;
  // A server that closes is never waited for, however busy the machine is.
  Web::HttpRequest request("127.0.0.1", kPort, "user", "secret", keepsOpen ? kTimeout : kLongTimeout, 16, 0);
  const std::vector<std::string> texts = keepsOpen ? std::vector<std::string>{} : PlainTexts(replies);
  const u32 isNTSC = what >> 3 & 1;
  switch (what & 7) {
    case 0:
    case 1:
      return ReadGroup1(request, replies, isNTSC, texts);
    case 2:
      return ReadGroup2(request, replies, isNTSC, texts);
    case 3:
      return keepsOpen ? Check(DetectCameraGroup(&request) <= 2, "a group is 1, 2 or none")
                       : Detect(request, replies);
    case 4:
    case 5:
      return PollInputs(kGroup1Words, keepsOpen, std::min<std::size_t>(replies.size(), 8), texts);
    default:
      return PollInputs(kGroup2Words, keepsOpen, std::min<std::size_t>(replies.size(), 8), texts);
  }
}
