#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "CameraConfig.h"
#include "kolvex/IIPCapabilities.h"

namespace kolvex_host {

/// What a capability query has found out about a camera: the host's objects that the library fills, and what
/// the host makes of them.
///
/// Filled on the query's thread; read by others once the query has ended.
class Capabilities final : public sarnevo::ipcapture::IIPCapabilities {
 public:
  void SetCapability(sarnevo::u32 id, sarnevo::u32 value) override { facts_[id] = value; }
  void SetModelName(const char* model) override { model_ = model; }
  sarnevo::ipcapture::IIPTextField* GetConnectionField(sarnevo::u32 index) override { return &fields_[index]; }
  sarnevo::ipcapture::IIPSettingEntry* GetSettingEntry(sarnevo::u32 index) override {
    return &settings_[index];
  }
  sarnevo::ipcapture::IIPResolutionEntry* AddResolutionEntry() override { return &resolutions_.emplace_back(); }
  sarnevo::ipcapture::IIPValueList* GetValueList(sarnevo::u32 index) override { return &lists_[index]; }

  /// The camera as the host puts it on record. The stream that it asks for is the largest picture at the
  /// camera's highest rate, in the quality that the library proposes.
  CameraConfig ToCamera(const std::string& address, sarnevo::u16 port, const std::string& name) const;

  /// A camera file (see CameraFile.h) of @p camera with all that was found out in its "device".
  nlohmann::json ToFile(const CameraConfig& camera) const;

  /// The same for people, in tables of up to @p width columns.
  std::string ToTable(const CameraConfig& camera, std::size_t width) const;

 private:
  struct Field final : sarnevo::ipcapture::IIPTextField {
    void SetText(const char* newText) override { text = newText; }
    std::string text;
  };
  struct Setting final : sarnevo::ipcapture::IIPSettingEntry {
    void SetValue(const char* text) override { value = text; }
    void SetAttributeA(sarnevo::u32) override {}
    void SetName(const char* text) override { name = text; }
    void SetAttributeB(sarnevo::u32) override {}
    std::string name;
    std::string value;
  };
  struct Resolution final : sarnevo::ipcapture::IIPResolutionEntry {
    void SetResolution(const char* newText, sarnevo::u32 newWidth, sarnevo::u32 newHeight,
                       sarnevo::u32 minFrameInterval) override {
      text = newText;
      width = newWidth;
      height = newHeight;
      shortestInterval = minFrameInterval;
    }
    std::string text;
    sarnevo::u32 width = 0, height = 0;  // pixels
    sarnevo::u32 shortestInterval = 0;   // milliseconds
  };
  struct List final : sarnevo::ipcapture::IIPValueList {
    void SetDefault(sarnevo::u32 value) override { proposed = value; }
    void AddValue(sarnevo::u32 value) override { values.push_back(value); }
    sarnevo::u32 proposed = 0;
    std::vector<sarnevo::u32> values;
  };

  /// Whether the driver moves a head of this camera: what a camera says of PTZ isn't enough, since the driver has
  /// it for group 1 alone and keeps positions under the hardware address.
  bool HasHead(const CameraConfig& camera) const;
  sarnevo::u32 Fact(sarnevo::u32 id) const;
  const List& ValuesOf(sarnevo::u32 index) const;

  std::string model_;
  std::map<sarnevo::u32, sarnevo::u32> facts_;  // by CapabilityId
  std::map<sarnevo::u32, Field> fields_;
  std::map<sarnevo::u32, Setting> settings_;
  std::map<sarnevo::u32, List> lists_;
  std::deque<Resolution> resolutions_;  // the library holds pointers into it
};

}  // namespace kolvex_host
