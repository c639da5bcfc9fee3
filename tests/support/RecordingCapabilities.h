#pragma once

#include <string>
#include <utility>

#include "kolvex/IIPCapabilities.h"

namespace kolvex_test {

/// The host's side of a capability query: writes each call with its arguments into one text, a line for each
/// object that is asked for and, after it, what it gets.
class RecordingCapabilities : public sarnevo::ipcapture::IIPCapabilities,
                              sarnevo::ipcapture::IIPTextField,
                              sarnevo::ipcapture::IIPSettingEntry,
                              sarnevo::ipcapture::IIPResolutionEntry,
                              sarnevo::ipcapture::IIPValueList {
 public:
  using u32 = sarnevo::u32;

  /// Only once the query has ended.
  const std::string& Transcript() const { return transcript_; }
  /// From here on the getters give null.
  void GiveNothing() { gives_ = false; }

  void SetCapability(u32 id, u32 value) override { Line("capability " + Text(id) + " = " + Text(value)); }
  void SetModelName(const char* model) override { Line(std::string("model ") + model); }
  sarnevo::ipcapture::IIPTextField* GetConnectionField(u32 index) override {
    return Object("field " + Text(index) + ":");
  }
  sarnevo::ipcapture::IIPSettingEntry* GetSettingEntry(u32 index) override {
    return Object("setting " + Text(index) + ":");
  }
  sarnevo::ipcapture::IIPResolutionEntry* AddResolutionEntry() override { return Object("resolution:"); }
  sarnevo::ipcapture::IIPValueList* GetValueList(u32 index) override {
    return Object("list " + Text(index) + ":");
  }

 private:
  void SetText(const char* text) override { Add("text " + std::string(text)); }
  void SetValue(const char* text) override { Add("value " + std::string(text)); }
  void SetAttributeA(u32 value) override { Add("A " + Text(value)); }
  void SetName(const char* name) override { Add("name " + std::string(name)); }
  void SetAttributeB(u32 value) override { Add("B " + Text(value)); }
  void SetResolution(const char* text, u32 width, u32 height, u32 interval) override {
    Add(std::string(text) + ", " + Text(width) + ", " + Text(height) + ", " + Text(interval));
  }
  void SetDefault(u32 value) override { Add("default " + Text(value)); }
  void AddValue(u32 value) override { Add(Text(value)); }

  static std::string Text(u32 value) { return std::to_string(value); }
  void Line(const std::string& line) { transcript_ += (transcript_.empty() ? "" : "\n") + line; }
  void Add(const std::string& word) { transcript_ += (transcript_.back() == ':' ? " " : "; ") + word; }
  RecordingCapabilities* Object(const std::string& line) {
    Line(line);
    return gives_ ? this : nullptr;
  }

  std::string transcript_;
  bool gives_ = true;
};

}  // namespace kolvex_test
