#include "io/CKolvexGroup1DigitalIO.h"

namespace sarnevo {

namespace {

// GET /gpio.cgi?action=apply&relayid=1&value=1
// GET /gpio.cgi?action=retrieve                  ...&gpio1=0&gpio2=1&...
constexpr DigitalIOWords kWords{
    .outputRequest = "/gpio.cgi?action=apply&relayid=",
    .outputValue = "&value=",
    .inputRequest = "/gpio.cgi?action=retrieve",
    .inputKey = "gpio",
    .inputKeyEnd = "",
    .terminators = "&",
};

}  // namespace

CKolvexGroup1DigitalIO::CKolvexGroup1DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs)
    : CGroupDigitalIO(kWords, driver, pollIntervalMs, stopTimeoutMs) {}

}  // namespace sarnevo
