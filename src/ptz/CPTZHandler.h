#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kolvex/IIPDeviceParams.h"
#include "kolvex/IIPPTZDriver.h"
#include "platform/Thread.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "prepositions/TSmartPtr.h"
#include "ptz/CPTZControl.h"

namespace sarnevo {

class Device;

/// The PTZ side of one driver: builds a control for each channel that the host asks for, and the one reader
/// of the camera's preset file. To the objects below it is the camera.
///
/// Before the host asks for a channel there is no thread, no file and no request. Any thread may call; a channel that is
/// known is given out at once, whatever another one waits for.
///
/// Lives in a std::shared_ptr, which the PTZ threads share, and the operations of the host's threads that are inside:
/// what is below the handler goes with it. Its owner calls End and lets go.
class CPTZHandler : public IIPDeviceParams,
                    public IIPPTZDriverEx,
                    public std::enable_shared_from_this<CPTZHandler> {
 public:
  /// @param driver        not owned; isn't looked at any more once End has begun.
  /// @param channelCount  number of video channels of the device.
  /// @param presetFolder  where the preset file lies; the folder of the host's executable when empty.
  CPTZHandler(Device* driver, u32 channelCount, std::string presetFolder = {});
  ~CPTZHandler() override;
  CPTZHandler(const CPTZHandler&) = delete;
  CPTZHandler& operator=(const CPTZHandler&) = delete;

  /// Stops all PTZ threads and waits for the items under way; from inside a callback of one of them not for that one.
  /// Once; from then on there is no channel, no camera and no message.
  void End() noexcept;

  std::string GetDeviceModel() override;
  std::string GetAddress() override;
  u16 GetPort() override;
  std::string GetUserName() override;
  std::string GetPassword() override;
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override;

  IIPPTZApiEx* GetPTZApiEx(u32 channel) override;

 private:
  using Controls = std::map<u32, std::unique_ptr<CPTZControl>>;  // by channel

  CPTZControl* Known(u32 channel) const;
  Controls BuildControl(u32 channel);
  void LoadPresetFile();

  Device* driver_;  // null from End on
  const u32 channelCount_;
  const std::string presetFolder_;

  // Never held while the camera is asked or the host called. The first requests for a driver's channels take turns,
  // so that each finds the one reader.
  std::mutex lock_;
  std::condition_variable turnOver_;
  // Guarded by lock_.
  platform::ThreadId builder_ = 0;  // whose turn it is; 0 for nobody's
  bool ended_ = false;
  Controls controls_;  // none is removed

  // The thread whose turn it is. Stays, also when its file couldn't be opened.
  TSmartPtr<CXMLPrepositionReader> presetReader_;
};

}  // namespace sarnevo
