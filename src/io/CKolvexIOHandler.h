#pragma once

#include <string>

#include "kolvex/CIPCaptureIOBaseHandlerIf.h"

namespace sarnevo {

class Device;

/// The description of the driver's I/O side for whoever wants it; no input or output passes through here.
/// Built in Open, once the driver's fields are set, and ended in Close.
class CKolvexIOHandler : public CIPCaptureIOBaseHandlerIf {
 public:
  /// Reads the two counts, once. @p driver outlives this object.
  explicit CKolvexIOHandler(Device* driver);

  const char* GetDriverName() override;
  u16 GetPort() override;
  const std::string& GetAddress() override;
  const std::string& GetUserName() override;
  const std::string& GetPassword() override;
  CameraIOSettings* GetSettings() override;
  [[gnu::format(printf, 3, 4)]] void WriteDebug(u32 level, const char* format, ...) override;

 private:
  Device* const driver_;
  CameraIOSettings settings_;
};

}  // namespace sarnevo
