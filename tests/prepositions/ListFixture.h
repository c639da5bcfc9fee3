#pragma once

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>

#include "prepositions/CPrepositionList.h"
#include "support/TempFolder.h"
#include "xml/Utf8.h"

/// Writes down what the list tells the camera and the host.
class FakeCamera : public sarnevo::IPrepositionComm {
 public:
  bool StorePreset(sarnevo::u32 slot) override { return Note("store " + std::to_string(slot)); }
  bool GotoPreset(sarnevo::u32 slot, sarnevo::u32 option) override {
    return Note("go " + std::to_string(slot) + "/" + std::to_string(option));
  }
  bool DeletePreset(sarnevo::u32 slot) override { return Note("delete " + std::to_string(slot)); }
  void DebugMessage(sarnevo::u32 level, const char* format, ...) override {
    char text[4096];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log += std::to_string(level) + " " + text + "; ";
    if (onMessage) {
      onMessage();
    }
  }
  std::string TakeLog() { return std::exchange(log, {}); }

  std::function<void()> onMessage;  ///< what the host does on a message
  std::string log;

 private:
  bool Note(const std::string& command) {
    log += command + "; ";
    return true;
  }
};

inline sarnevo::TSmartPtr<CXMLPrepositionReader> OpenReader(const std::string& folder, bool noCreate = false) {
  sarnevo::TSmartPtr<CXMLPrepositionReader> reader;
  reader.Attach(new CXMLPrepositionReader("Kolvex", folder));
  reader->Open("p.preset", noCreate);
  return reader;
}

/// A list as the PTZ control sets it up.
struct List : sarnevo::CPrepositionList {
  List(sarnevo::IPrepositionComm* camera, const sarnevo::TSmartPtr<CXMLPrepositionReader>& reader,
       bool fixed = false, sarnevo::u32 channel = 0)
      : CPrepositionList(channel, 1) {
    if (fixed) {
      SetFixedSlots();
    }
    SetCamera(camera, fixed ? 64 : 32);
    SetReader(reader);
  }

  /// All names in order with a "," behind each, the current one marked by "*"; placeholders left out.
  std::string Names() {
    std::wstring all, name, current;
    const bool known = GetCurrentPreposition(current);
    for (sarnevo::u32 i = 0; i < GetPrepositionCount(); ++i) {
      if (GetPrepositionName(i, name) && !name.starts_with(L"empty p")) {
        all += name + (known && name == current ? L"*," : L",");
      }
    }
    return sarnevo::ToUtf8(all);
  }
};
