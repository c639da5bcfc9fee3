// A preset file of any content, written to by the library and read again: what was written is there, and
// the file is one that the library takes.
#include <filesystem>
#include <fstream>
#include <string>

#include "FuzzTarget.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "support/TempFolder.h"

using kolvex_fuzz::Check;

FUZZ_TARGET(PresetFile) {
  static const TempFolder own;
  const std::string& folder = own.Emptied();
  const std::string name = "Kolvex_fuzz.preset";
  std::ofstream(std::filesystem::path(folder) / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));

  bool saved = false;
  {
    CXMLPrepositionReader reader("Kolvex", folder);
    Check(reader.Open(name, false), "any file opens, if need be as a new one");
    sarnevo::PrepositionRecord record;
    for (sarnevo::u32 index = 0; index < 8; ++index) {
      if (reader.Read(0, index, record)) {
        Check(!record.name.empty(), "an entry has a name");
      }
    }
    reader.SetAutoSave(true);
    saved = reader.Write(0, 3, {L"Gate & <yard> \"7\"", 17});
  }
  CXMLPrepositionReader again("Kolvex", folder);
  Check(again.Open(name, true), "what was left is a file that opens");
  sarnevo::PrepositionRecord record;
  if (saved) {
    Check(again.Read(0, 3, record) && record.name == L"Gate & <yard> \"7\"" && record.slot == 17,
          "what was saved is what is read");
  }
}
