#include "simcam/device/Control.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "simcam/base/Text.h"
#include "simcam/device/Camera.h"

namespace simcam {

namespace {

template <FaultRate PacketFaults::*kRate>
bool SetRate(Camera& camera, const std::string& value) {
  const std::optional<FaultRate> rate = FaultRate::Parse(value);
  if (rate) camera.faults().packets.*kRate = *rate;
  return rate.has_value();
}

template <ReplyFault Faults::*kFault>
bool SetReply(Camera& camera, const std::string& value) {
  const std::optional<ReplyFault> fault = ReplyFault::Parse(value);
  if (fault) {
    camera.faults().*kFault = *fault;
    camera.ApplyRefusal();
  }
  return fault.has_value();
}

bool Heal(Camera& camera, const std::string&) {
  camera.faults() = {};
  camera.ApplyRefusal();
  return true;
}

bool SetSilent(Camera& camera, const std::string& value) {
  camera.faults().silent = value == "1";
  return value == "0" || value == "1";
}

bool SetReports(Camera& camera, const std::string& value) {
  constexpr std::array<std::string_view, 6> kNames{"ok", "lose", "short", "garbage", "oversize", "empty"};
  const auto* const name = std::find(kNames.begin(), kNames.end(), value);
  if (name == kNames.end()) {
    return false;
  }
  camera.faults().reports = static_cast<ReportFault>(name - kNames.begin());
  return true;
}

bool Reboot(Camera& camera, const std::string& value) {
  const std::optional<double> seconds = ParseReal(value, 0, 86'400);
  if (seconds) camera.Reboot(Milliseconds(static_cast<long>(*seconds * 1000)));
  return seconds.has_value();
}

bool AnswerAs(Camera& camera, const std::string& value) {
  const auto group = ParseNumber(value, 1, 2);
  if (group) camera.AnswerAs(static_cast<Group>(*group));
  return group.has_value();
}

bool Seed(Camera& camera, const std::string& value) {
  const auto seed = ParseNumber(value, 1, UINT64_MAX / 2);
  if (seed) camera.Reseed(*seed);
  return seed.has_value();
}

bool SetPinStyle(Camera& camera, const std::string& value) {
  const std::optional<PinStyle> style = ParsePinStyle(value);
  if (style) camera.pins().SetStyle(*style);
  return style.has_value();
}

bool Walk(Camera& camera, const std::string& value) {
  const auto step = ParseNumber(value, 0, 3'600'000);
  if (step) camera.pins().Walk(Milliseconds(*step));
  return step.has_value();
}

struct Command {
  std::string_view key;
  bool (*run)(Camera& camera, const std::string& value);
  std::string_view help;
};
constexpr std::array kCommands = {
    Command{"lose", SetRate<&PacketFaults::lose>, "RATE     RTP packets that are never sent"},
    Command{"duplicate", SetRate<&PacketFaults::duplicate>, "RATE     RTP packets that are sent twice"},
    Command{"reorder", SetRate<&PacketFaults::reorder>,
            "RATE     RTP packets that are sent after their successor"},
    Command{"truncate", SetRate<&PacketFaults::truncate>,
            "RATE     RTP packets that are cut to a random length"},
    Command{"corrupt", SetRate<&PacketFaults::corrupt>,
            "RATE     RTP packets with up to 8 changed payload bytes"},
    Command{"garbage", SetRate<&PacketFaults::garbage>, "RATE     datagrams of random bytes sent in between"},
    Command{"oversize", SetRate<&PacketFaults::oversize>, "RATE     datagrams of 6000 bytes sent in between"},
    Command{"empty", SetRate<&PacketFaults::empty>, "RATE     datagrams without a byte sent in between"},
    Command{"stranger", SetRate<&PacketFaults::stranger>,
            "RATE     packets of another sender in between, from another address"},
    Command{"mistype", SetRate<&PacketFaults::mistype>,
            "RATE     packets with a payload type that the description doesn't name"},
    Command{"unmark", SetRate<&PacketFaults::unmark>, "RATE     packets that lose their marker bit"},
    Command{"swap", SetRate<&PacketFaults::swap>,
            "RATE     packets that exchange sequence numbers with the next"},
    Command{"silent", SetSilent, "0|1      streams are set up, but no RTP comes"},
    Command{"reports", SetReports, "WHAT     RTCP reports: ok, lose, short, garbage, oversize or empty"},
    Command{"http", SetReply<&Faults::http>, "REPLY    what happens to HTTP replies"},
    Command{"rtsp", SetReply<&Faults::rtsp>, "REPLY    what happens to RTSP replies"},
    Command{"reboot", Reboot, "SECONDS  gone at once, and back after that time with new sessions and SSRC"},
    Command{"answer-as", AnswerAs, "1|2      speak as the other camera group"},
    Command{"seed", Seed, "NUMBER   draw numbers and faults from here on"},
    Command{"input-walk", Walk, "MS       a random input changes each MS milliseconds; 0 ends it"},
    Command{"input-script", [](Camera& c, const std::string& v) { return c.pins().Play(v); },
            "SCRIPT   [loop:]MS/INPUT=LEVEL;... for example loop:500/1=1;1000/1=0"},
    Command{"pins", SetPinStyle, "STYLE    normal, reversed, doubled, upper or missing keys in pin replies"},
    Command{"heal", Heal, "1        all faults end"},
};

// "input3" with 0, 1 or toggle.
bool SetInput(Camera& camera, std::string_view key, const std::string& value) {
  constexpr std::string_view kInput = "input";
  const auto number = ParseNumber(key.substr(kInput.size()), 1, camera.pins().count());
  if (!number || (value != "0" && value != "1" && value != "toggle")) {
    return false;
  }
  const auto index = static_cast<unsigned>(*number) - 1;
  return camera.pins().Set(index, value == "toggle" ? !camera.pins().high(index) : value == "1");
}

bool Run(Camera& camera, const std::string& key, const std::string& value) {
  for (const Command& command : kCommands) {
    if (command.key == key) {
      return command.run(camera, value);
    }
  }
  return key.starts_with("input") && SetInput(camera, key, value);
}

constexpr const char* kRates = "RATE is a probability (0.05), every:N or next:N packets";
constexpr const char* kReplies =
    "REPLY is ok, refuse, stall, delay:MS, drip:MS (a byte at a time), pieces:BYTES, cut:BYTES, reset, "
    "status:CODE, garbage:BYTES, oversize:BYTES, endless, gone:MS (in place of a reply, and back after that "
    "time) or "
    "turn:MS (back as the other group), each with /PLACE after it for where the reply begins to go wrong "
    "(connect, "
    "status, header1, header2 and so on or body), @TEXT for only those requests that hold TEXT and *COUNT for "
    "only that many replies: stall/header2@SETUP*1";

/// What a command takes, for the one who gave it something else.
std::string Allowed(const Camera& camera, std::string_view key) {
  for (const Command& command : kCommands) {
    if (command.key == key) {
      const std::string kind(command.help.substr(0, command.help.find(' ')));
      return kind == "RATE" ? kRates : kind == "REPLY" ? kReplies : "it takes " + std::string(command.help);
    }
  }
  if (key.starts_with("input") && camera.settings().inputs.value_or(0) != 0) {
    return Format("there are input1 to input%u, each 0, 1 or toggle", *camera.settings().inputs);
  }
  std::string names;
  for (const Command& command : kCommands) {
    names += (names.empty() ? "" : ", ") + std::string(command.key);
  }
  return "the commands are " + names;
}

}  // namespace

std::string Control(Camera& camera, std::string_view commands) {
  const Parameters parameters = Parameters::Parse(commands);
  for (const auto& [key, value] : parameters.items()) {
    if (!Run(camera, key, value)) {
      return Format("the camera can't do \"%s=%s\": %s", key.c_str(), value.c_str(),
                    Allowed(camera, key).c_str());
    }
  }
  return {};
}

HttpReply AnswerControl(Camera& camera, std::string_view target) {
  const std::size_t question = target.find('?');
  const std::string_view query = question == std::string_view::npos ? "" : target.substr(question + 1);
  HttpReply reply;
  if (query.empty() || query == "status") {
    reply.type = "application/json";
    reply.body = ToJson(camera.Status()).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    return reply;
  }
  const std::string error = Control(camera, query);
  reply.status = error.empty() ? 200 : 400;
  reply.body = (error.empty() ? "ok" : error) + "\n";
  return reply;
}

std::string ControlHelp() {
  std::string text;
  for (const Command& command : kCommands) {
    text += Format("  %-13s%s\n", std::string(command.key).c_str(), std::string(command.help).c_str());
  }
  return text + "  inputN       0|1|toggle  level of input N\n" + kRates + ".\n" + kReplies + ".\n";
}

}  // namespace simcam
