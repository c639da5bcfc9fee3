#pragma once

#include <map>
#include <memory>
#include <string>

#include "kolvex/IIPDeviceParams.h"
#include "kolvex/IIPPTZDriver.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "prepositions/TSmartPtr.h"
#include "ptz/CPTZControl.h"
#include "threads/COptex.h"

namespace sarnevo {

class Device;

/// The PTZ side of one driver: builds a control for each channel that the host asks for, and the one reader
/// of the camera's preset file. Towards the objects below it stands for the camera.
///
/// Before the host asks for a channel there is no thread, no file and no request. Any thread may call.
/// Destruction ends the controls and belongs to the driver.
class CPTZHandler : public IIPDeviceParams, public IIPPTZDriverEx {
 public:
  /// @param driver        not owned; outlives this object.
  /// @param channelCount  number of video channels of the device.
  /// @param presetFolder  where the preset file lies; the folder of the host's executable when empty.
  CPTZHandler(Device* driver, u32 channelCount, std::string presetFolder = {});
  ~CPTZHandler() override;
  CPTZHandler(const CPTZHandler&) = delete;
  CPTZHandler& operator=(const CPTZHandler&) = delete;

  std::string GetDeviceModel() override;
  std::string GetAddress() override;
  u16 GetPort() override;
  std::string GetUserName() override;
  std::string GetPassword() override;
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override;

  IIPPTZApiEx* GetPTZApiEx(u32 channel) override;

 private:
  std::unique_ptr<CPTZControl> BuildControl(u32 channel);
  bool LoadPresetFile();

  Device* const driver_;
  const u32 channelCount_;
  const std::string presetFolder_;

  // Held while a control is built, the question to the camera included: the first requests for a driver's
  // channels wait for each other. Not taken by the PTZ threads.
  COptex lock_;
  // Guarded by lock_.
  std::map<u32, std::unique_ptr<CPTZControl>> controls_;  // by channel; none is removed before the end
  TSmartPtr<CXMLPrepositionReader> presetReader_;         // stays, also when its file couldn't be opened
};

}  // namespace sarnevo
