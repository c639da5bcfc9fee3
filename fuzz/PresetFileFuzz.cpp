// A preset file of any content, written to by the library and read again: what was written stands there, and
// the file is one that the library takes.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "FuzzTarget.h"
#include "prepositions/CXMLPrepositionReader.h"

using kolvex_fuzz::Check;

namespace {

std::string Folder() {
  std::string folder = (std::filesystem::temp_directory_path() / "kolvex-fuzz-XXXXXX").string();
  Check(mkdtemp(folder.data()) != nullptr, "a folder for the file");
  return folder;
}

// The folder lives as long as the process.
struct OwnFolder {
  const std::string path = Folder();
  ~OwnFolder() { std::filesystem::remove_all(path); }
};

}  // namespace

FUZZ_TARGET(PresetFile) {
  static const OwnFolder folder;
  for (const auto& file : std::filesystem::directory_iterator(folder.path)) {
    std::filesystem::remove_all(file);
  }
  const std::string name = "Kolvex_fuzz.preset";
  std::ofstream(std::filesystem::path(folder.path) / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));

  bool saved = false;
  {
    CXMLPrepositionReader reader("Kolvex", folder.path);
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
  CXMLPrepositionReader again("Kolvex", folder.path);
  Check(again.Open(name, true), "what was left is a file that opens");
  sarnevo::PrepositionRecord record;
  if (saved) {
    Check(again.Read(0, 3, record) && record.name == L"Gate & <yard> \"7\"" && record.slot == 17,
          "what was saved is what is read");
  }
}
