#include "io/CKolvexIOHandler.h"

#include <cstdarg>

#include "device/Device.h"
#include "device/MessageText.h"

namespace sarnevo {

namespace {

constexpr u32 kInterval = 1000;

}  // namespace

CKolvexIOHandler::CKolvexIOHandler(Device* driver) : driver_(driver) {
  settings_.inputCount = driver->GetInputCount();
  settings_.outputCount = driver->GetOutputCount();
  settings_.interval = kInterval;
}

const char* CKolvexIOHandler::GetDriverName() { return Device::kDriverName; }

u16 CKolvexIOHandler::GetPort() { return driver_->GetPort(); }

const std::string& CKolvexIOHandler::GetAddress() { return driver_->GetAddress(); }

const std::string& CKolvexIOHandler::GetUserName() { return driver_->GetUserName(); }

const std::string& CKolvexIOHandler::GetPassword() { return driver_->GetPassword(); }

CameraIOSettings* CKolvexIOHandler::GetSettings() { return &settings_; }

void CKolvexIOHandler::WriteDebug(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const MessageText text(format, arguments);
  va_end(arguments);
  if (text.Get() != nullptr) {
    // Finished text: a percent sign in it means nothing any more.
    driver_->DebugMessage(level, "%s", text.Get());
  }
}

}  // namespace sarnevo
