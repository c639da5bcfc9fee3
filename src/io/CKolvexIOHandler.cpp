#include "io/CKolvexIOHandler.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

#include "device/Device.h"

namespace sarnevo {

namespace {

constexpr u32 kInterval = 1000;

}  // namespace

CKolvexIOHandler::CKolvexIOHandler(Device* driver) : driver_(driver) {
  settings_.inputCount = driver->GetInputCount();
  settings_.outputCount = driver->GetOutputCount();
  settings_.interval = kInterval;
}

const char* CKolvexIOHandler::GetDriverName() { return "NewKolvexIPCapture"; }

u16 CKolvexIOHandler::GetPort() { return driver_->GetPort(); }

const std::string& CKolvexIOHandler::GetAddress() { return driver_->GetAddress(); }

const std::string& CKolvexIOHandler::GetUserName() { return driver_->GetUserName(); }

const std::string& CKolvexIOHandler::GetPassword() { return driver_->GetPassword(); }

CameraIOSettings* CKolvexIOHandler::GetSettings() { return &settings_; }

void CKolvexIOHandler::WriteDebug(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list counting;
  va_copy(counting, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, counting);
  va_end(counting);
  if (length >= 0) {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    const std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
    if (text) {
      std::vsnprintf(text.get(), size, format, arguments);
      // Finished text: a percent sign in it means nothing any more.
      driver_->DebugMessage(level, "%s", text.get());
    }
  }
  va_end(arguments);
}

}  // namespace sarnevo
