#pragma once

#include <string>

#include "kolvex/IIPPTZApi.h"
#include "kolvex/IIPParams.h"
#include "prepositions/CPrepositionList.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "prepositions/TSmartPtr.h"
#include "ptz/CBasePTZComm.h"

namespace sarnevo {

class CPTZHandler;

/// What the host drives one channel with. Movements go on to the communication object, which queues them;
/// the operations on stored positions go to the list, which commands the camera on the calling thread. What
/// is decided here: the results, the names, and that a movement forgets the current position.
///
/// Any thread may call the host's operations, once Open gave true. Open and destruction are the handler's.
class CPTZControl : public IIPPTZApiEx, public IIPParams {
 public:
  /// @param handler  not owned; outlives this object.
  /// @param channel  the PTZ channel, counted from 0.
  CPTZControl(CPTZHandler* handler, u32 channel);
  /// Stops the thread. Queued items are thrown away, and the camera isn't told to stop.
  ~CPTZControl() override;
  CPTZControl(const CPTZControl&) = delete;
  CPTZControl& operator=(const CPTZControl&) = delete;

  u32 IsPTZAvailable() override;
  i32 StartMove(u32 direction, i32 speed) override;
  i32 StopMove() override;
  i32 Center(u32 a, u32 b, u32 c) override;
  i32 ZoomIn(i32 speed) override;
  i32 ZoomOut(i32 speed) override;
  i32 Unzoom(u32 a) override;
  i32 AreaZoom(u32 a, u32 b, u32 c, u32 d) override;
  i32 FocusNear(u32 speed) override;
  i32 FocusFar(u32 speed) override;
  i32 IrisOpen(u32 speed) override;
  i32 IrisClose(u32 speed) override;
  i32 GetCapabilities(CPtzCapabilities* record) override;
  u32 GetPrepositionCount() override;
  i32 GetPrepositionName(u32 position, char* buffer, u32 bufferSize) override;
  i32 SelectPreposition(u32 option, const char* name) override;
  i32 AddPreposition(const char* name) override;
  i32 DeletePreposition(const char* name) override;
  i32 GetCurrentPreposition(char* buffer, u32 bufferSize) override;
  u32 CheckValue(u32 value) override;

  /// Asks the camera for its protocol, starts the thread and loads the list. False when there is no reader or
  /// no thread; @p comm is then gone.
  /// @param reader  of the camera's preset file, shared with the other channels.
  /// @param comm    owned from here on, whatever the result.
  virtual bool Open(TSmartPtr<CXMLPrepositionReader> reader, CBasePTZComm* comm);

  /// Lets no further item go to the camera. Before End, where several controls end.
  void BeginClose() noexcept;
  /// Stops the thread, after the item under way. From here on nothing is queued.
  void End() noexcept;

  u32 GetChannel() override { return channel_; }
  u8 GetIrisManual() override { return irisManual_; }
  void SetIrisManual(u8 value) override { irisManual_ = value; }
  u8 GetFocusManual() override { return focusManual_; }
  void SetFocusManual(u8 value) override { focusManual_ = value; }

 private:
  template <typename Result, typename Operation>
  Result Inside(Result failure, Operation operation) noexcept;
  template <typename Operation>
  i32 Move(Operation operation) noexcept;
  template <typename Find>
  i32 NameInto(char* buffer, u32 bufferSize, Find find) noexcept;
  template <typename Operation>
  i32 WithName(const char* operationName, const char* name, i32 failure, Operation operation);
  void CloseComm();

  // Constant after Open.
  CPTZHandler* const handler_;
  const u32 channel_;
  CBasePTZComm* comm_ = nullptr;  // owned; null before Open and after a failed one

  CPrepositionList prepositions_;  // guards itself

  // The PTZ thread only. Not 0: last set by hand. 0 at first, whatever the camera's real state may be.
  u8 irisManual_ = 0;
  u8 focusManual_ = 0;
};

}  // namespace sarnevo
