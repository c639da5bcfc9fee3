#include "io/CKolvexGroup2DigitalIO.h"

namespace sarnevo {

namespace {

// GET /SetGPIO.cgi?Out1STA=1
// GET /GetGPIO.cgi              ...<br>Input1_Sensor=0<br>Input2_Sensor=1<br>...
constexpr DigitalIOWords kWords{
    .outputRequest = "/SetGPIO.cgi?Out",
    .outputValue = "STA=",
    .inputRequest = "/GetGPIO.cgi",
    .inputKey = "Input",
    .inputKeyEnd = "_Sensor",
    .terminators = "<>",
};

}  // namespace

CKolvexGroup2DigitalIO::CKolvexGroup2DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs)
    : CGroupDigitalIO(kWords, driver, pollIntervalMs, stopTimeoutMs) {}

}  // namespace sarnevo
