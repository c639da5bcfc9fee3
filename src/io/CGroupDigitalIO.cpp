#include "io/CGroupDigitalIO.h"

#include <string>

#include "camera/CgiText.h"
#include "camera/ReplyBody.h"
#include "camera/SendRequest.h"
#include "http/RequestInterrupt.h"

namespace sarnevo {

namespace {

constexpr u32 kAnySuccess = 0;  // any status from 200 to 299

// GET /gpio.cgi?action=apply&relayid=1&value=1
// GET /gpio.cgi?action=retrieve                  ...&gpio1=0&gpio2=1&...
constexpr DigitalIOWords kGroup1Words{
    .outputRequest = "/gpio.cgi?action=apply&relayid=",
    .outputValue = "&value=",
    .inputRequest = "/gpio.cgi?action=retrieve",
    .inputKey = "gpio",
    .inputKeyEnd = "",
    .terminators = "&",
};

// GET /SetGPIO.cgi?Out1STA=1
// GET /GetGPIO.cgi              ...<br>Input1_Sensor=0<br>Input2_Sensor=1<br>...
constexpr DigitalIOWords kGroup2Words{
    .outputRequest = "/SetGPIO.cgi?Out",
    .outputValue = "STA=",
    .inputRequest = "/GetGPIO.cgi",
    .inputKey = "Input",
    .inputKeyEnd = "_Sensor",
    .terminators = "<>",
};

}  // namespace

CGroupDigitalIO::CGroupDigitalIO(const DigitalIOWords& words, Device* driver, u32 pollIntervalMs,
                                 u32 stopTimeoutMs)
    : CIOBase(driver, pollIntervalMs, stopTimeoutMs),
      words_(words),
      outputRequest_(*driver, request_policy::kOutput),
      inputRequest_(*driver, request_policy::kInputs) {}

// A connection that is left would go on holding one of the camera's few places.
void CGroupDigitalIO::CloseConnections() noexcept {
  inputRequest_.Cancel();
  outputRequest_.Cancel();
}

bool CGroupDigitalIO::WriteOutput(u32 index, u32 state) {
  const std::string path =
      words_.outputRequest + std::to_string(index + 1) + words_.outputValue + (state == IOStateLow ? '0' : '1');
  std::vector<u8> reply;  // not wanted
  const Web::RequestInterrupt interrupt(outputRequest_);
  return Utils::SendRequest(&outputRequest_, path, reply, nullptr, false, kAnySuccess, kReadBlockBytes);
}

bool CGroupDigitalIO::ReadInputs(u32 count) {
  if (FetchInputs()) {
    for (u32 number = 1; number <= count && !AreInputsStopping(); ++number) {
      UpdateInput(number - 1, StateOf(number));
    }
  }
  return true;
}

// Nothing counts of a reply that a stop or a lack of memory has cut off: an input whose key is missing would be high.
bool CGroupDigitalIO::FetchInputs() {
  const Web::RequestInterrupt interrupt(inputRequest_);
  return Utils::SendRequest(&inputRequest_, words_.inputRequest, reply_, nullptr, true, kAnySuccess,
                            kReadBlockBytes) &&
         WasEndedByCamera();
}

// Whatever has a zero in its value is low; anything else is high, a missing value too.
u32 CGroupDigitalIO::StateOf(u32 number) const {
  const std::string key = words_.inputKey + std::to_string(number) + words_.inputKeyEnd;
  const std::string value = GetCgiValue(TextOf(reply_), key, "=", words_.terminators);
  return value.find('0') != std::string::npos ? IOStateLow : IOStateHigh;
}

CKolvexGroup1DigitalIO::CKolvexGroup1DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs)
    : CGroupDigitalIO(kGroup1Words, driver, pollIntervalMs, stopTimeoutMs) {}

CKolvexGroup2DigitalIO::CKolvexGroup2DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs)
    : CGroupDigitalIO(kGroup2Words, driver, pollIntervalMs, stopTimeoutMs) {}

}  // namespace sarnevo
