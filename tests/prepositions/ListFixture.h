#pragma once

#include <functional>
#include <string>
#include <utility>

#include "prepositions/CPrepositionList.h"
#include "support/TempFolder.h"
#include "xml/Utf8.h"

inline sarnevo::TSmartPtr<CXMLPrepositionReader> OpenReader(const std::string& folder) {
  sarnevo::TSmartPtr<CXMLPrepositionReader> reader;
  reader.Attach(new CXMLPrepositionReader("Kolvex", folder));
  reader->Open("p.preset", false);
  return reader;
}

/// A list as the PTZ control sets it up, with a camera that takes everything.
struct List : sarnevo::CPrepositionList, sarnevo::IPrepositionComm {
  explicit List(const std::string& folder) : List(OpenReader(folder)) {}
  explicit List(const sarnevo::TSmartPtr<CXMLPrepositionReader>& reader, sarnevo::u32 channel = 0,
                bool fixedSlots = false)
      : CPrepositionList(channel, 1) {
    if (fixedSlots) {
      SetFixedSlots();
    }
    SetCamera(this, fixedSlots ? 64 : 32);
    SetReader(reader);
  }

  /// All names in order with a "," after each.
  std::string Names() {
    std::string all;
    std::wstring name;
    for (sarnevo::u32 i = 0; GetPrepositionName(i, name); ++i) {
      all += sarnevo::ToUtf8(name) + ",";
    }
    return all;
  }

  bool StorePreset(sarnevo::u32) override { return true; }
  bool GotoPreset(sarnevo::u32, sarnevo::u32) override { return true; }
  bool DeletePreset(sarnevo::u32) override { return true; }
  void DebugMessage(sarnevo::u32, const char*, ...) override {
    if (const auto call = std::exchange(onMessage, nullptr)) {
      call();
    }
  }

  std::function<void()> onMessage;  // what the host does inside of the next message
};
