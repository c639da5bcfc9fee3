#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "camera/CResolutionInfo.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// The record of what a capability query found out. Lives during a query only: a running driver works from
/// the numbered settings that were published from it.
///
/// One thread at a time. The four Get operations that walk keep their place in the record.
class CCameraProperties {
 public:
  /// A compression format, 2 or 4.
  void AddFormat(u32 format);
  /// Adds a copy at the end. A second record of a size that is there already is dropped, unless its width
  /// is 0.
  void AddResolution(const CResolutionInfo& resolution);

  /// The formats in the order of adding, one a call; 0 after the last.
  u32 GetFirstFormat();
  u32 GetNextFormat();
  /// The resolutions likewise; null after the last. The pointer is good until the next adding.
  CResolutionInfo* GetFirstResolution();
  CResolutionInfo* GetNextResolution();

  const std::string& GetVendor() const noexcept { return vendor_; }
  void SetVendor(const char* vendor) { vendor_ = vendor; }
  const std::string& GetModel() const noexcept { return model_; }
  void SetModel(const char* model) { model_ = model; }
  /// Video channels.
  u32 GetChannelCount() const noexcept { return channelCount_; }
  void SetChannelCount(u32 count) noexcept { channelCount_ = count; }
  /// Digital inputs.
  u32 GetInputCount() const noexcept { return inputCount_; }
  void SetInputCount(u32 count) noexcept { inputCount_ = count; }
  /// Digital outputs.
  u32 GetOutputCount() const noexcept { return outputCount_; }
  void SetOutputCount(u32 count) noexcept { outputCount_ = count; }
  bool HasAudio() const noexcept { return hasAudio_ != 0; }
  void SetAudio(bool present) noexcept { hasAudio_ = present ? 1 : 0; }
  bool HasPTZ() const noexcept { return hasPTZ_ != 0; }
  void SetPTZ(bool present) noexcept { hasPTZ_ = present ? 1 : 0; }

 private:
  std::vector<u32> formats_;
  std::vector<CResolutionInfo> resolutions_;
  std::string vendor_;
  std::string model_;
  u32 channelCount_ = 0;
  u32 inputCount_ = 0;
  u32 outputCount_ = 0;
  u32 nextFormat_ = 0;
  u32 nextResolution_ = 0;
  u8 hasAudio_ = 0;
  u8 hasPTZ_ = 0;
};

}  // namespace sarnevo
