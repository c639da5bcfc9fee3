#pragma once

#include "kolvex/Types.h"

/// Implemented by the host: takes what a capability query finds out about a camera. All objects belong to
/// the host and stay valid until UninitCapabilityQuery has returned. They are called on the query's thread;
/// where one of them gives null, what would go into it is left out. Texts are read only during the call.
namespace sarnevo::ipcapture {

/// What IIPCapabilities::SetCapability gets.
enum CapabilityId : u32 {
  CapabilityChannels = 0,  ///< number of video channels
  CapabilityPTZ = 1,       ///< 1; not set without a PTZ head
  CapabilityInputs = 2,    ///< number of digital inputs; not set if 0
  CapabilityOutputs = 3,   ///< number of digital outputs; not set if 0
  CapabilityAudio = 4,     ///< 1; not set without audio
  CapabilityFormat4 = 6,   ///< 1; the camera has compression format 4. All have both formats, and both codecs
  CapabilityFormat2 = 7,   ///< 1; the camera has compression format 2
  Capability11 = 11,       ///< always 0
  Capability12 = 12,       ///< always 0
};

/// What IIPCapabilities::GetConnectionField gives.
enum ConnectionField : u32 {
  ConnectionFieldAddress = 1,  ///< as StartCapabilityQuery got it
  ConnectionFieldPort = 2,     ///< decimal
  ConnectionField3 = 3,        ///< asked for, left untouched
  ConnectionField4 = 4,        ///< asked for, left untouched
};

/// What IIPCapabilities::GetValueList gives.
enum ValueList : u32 {
  ValueListFrameIntervals = 1,  ///< milliseconds
  ValueListQuality = 3,         ///< percent, 100 is the best
};

/// Takes one text.
class IIPTextField {
 public:
  virtual ~IIPTextField() = default;  ///< slot 0
  /// Read only during the call.
  virtual void SetText(const char* text) = 0;  ///< slot 1
};

/// One numbered setting (see CustomSetting): the host keeps the text and hands it back at
/// IIPCaptureDriver::Open.
class IIPSettingEntry {
 public:
  virtual ~IIPSettingEntry() = default;  ///< slot 0
  /// Read only during the call.
  virtual void SetValue(const char* text) = 0;  ///< slot 1
  virtual void Slot2() {}                       ///< slot 2, not called
  virtual void Slot3() {}                       ///< slot 3, not called
  /// 1 for "BitrateList" and "MAC", else 0.
  virtual void SetAttributeA(u32 value) = 0;  ///< slot 4
  /// Read only during the call; the name that CustomSetting lists.
  virtual void SetName(const char* name) = 0;  ///< slot 5
  /// Always 0.
  virtual void SetAttributeB(u32 value) = 0;  ///< slot 6
};

/// Takes one size of picture.
class IIPResolutionEntry {
 public:
  virtual ~IIPResolutionEntry() = default;  ///< slot 0
  /// @param text              "WIDTHxHEIGHT"; read only during the call
  /// @param width             pixels
  /// @param height            pixels
  /// @param minFrameInterval  shortest frame interval, milliseconds
  virtual void SetResolution(const char* text, u32 width, u32 height, u32 minFrameInterval) = 0;  ///< slot 1
};

/// Takes the values that the host may offer its user.
class IIPValueList {
 public:
  virtual ~IIPValueList() = default;  ///< slot 0
  /// The value to begin with.
  virtual void SetDefault(u32 value) = 0;  ///< slot 1
  /// One more value, in the order to be shown.
  virtual void AddValue(u32 value) = 0;  ///< slot 2
};

/// Takes the whole answer.
class IIPCapabilities {
 public:
  virtual ~IIPCapabilities() = default;  ///< slot 0
  /// @param id     a CapabilityId
  /// @param value  as CapabilityId says
  virtual void SetCapability(u32 id, u32 value) = 0;  ///< slot 1
  /// Read only during the call.
  virtual void SetModelName(const char* model) = 0;  ///< slot 2
  /// @param index  a ConnectionField
  virtual IIPTextField* GetConnectionField(u32 index) = 0;  ///< slot 3
  virtual void Slot4() {}                                   ///< slot 4, not called
  /// @param index  a CustomSetting
  virtual IIPSettingEntry* GetSettingEntry(u32 index) = 0;  ///< slot 5
  /// A new entry, one for each resolution.
  virtual IIPResolutionEntry* AddResolutionEntry() = 0;  ///< slot 6
  virtual void Slot7() {}                                ///< slot 7, not called
  /// @param index  a ValueList
  virtual IIPValueList* GetValueList(u32 index) = 0;  ///< slot 8
};

}  // namespace sarnevo::ipcapture
