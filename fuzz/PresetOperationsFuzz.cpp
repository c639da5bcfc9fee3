// A sequence of preset operations on two channels of a camera with one file: adding, selecting, deleting, moving
// away, a camera that refuses, a disk that can't be written, a restart, somebody's editing of the file. After each
// step list, camera and file are what a model says.
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "FuzzTarget.h"
#include "PresetModel.h"
#include "prepositions/CPrepositionList.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "support/TempFolder.h"

namespace {

using kolvex_fuzz::Check;
using kolvex_fuzz::Position;
using kolvex_fuzz::PresetFileModel;
using kolvex_fuzz::PresetModel;
using namespace sarnevo;

constexpr const char* kFile = "Kolvex_fuzz.preset";
constexpr u32 kChannels = 2;

class Camera : public IPrepositionComm {
 public:
  bool refuses = false;
  std::string sent;

  bool StorePreset(u32 slot) override { return Note("store", slot); }
  bool GotoPreset(u32 slot, u32) override { return Note("go", slot); }
  bool DeletePreset(u32 slot) override { return Note("delete", slot); }
  void DebugMessage(u32, const char*, ...) override {}

 private:
  bool Note(const char* what, u32 slot) {
    sent += what + std::string(" ") + std::to_string(slot) + ";";
    return !refuses;
  }
};

// Short names out of few characters meet each other often.
std::wstring Name(kolvex_fuzz::Reader& reader) {
  static constexpr std::array<wchar_t, 32> kLetters = {
      L'a',  L'b', L'c',   L' ',    L'1',   L'\t',  L'\n',  L'\r',  L']', L'[',  L'@',
      L'/',  L'%', L'=',   L'-',    L'?',   L'&',   L'<',   L'>',   L'"', L'\'', L'!',
      L'\1', 0xE4, 0x20AC, 0x1F600, 0xD800, 0xDC00, 0xFFFE, 0xFFFF, 0x85, 0x7F};
  std::wstring name;
  for (std::size_t length = reader.Byte() % 6; length > 0; --length) {
    name += kLetters[reader.Byte() % kLetters.size()];
  }
  return name;
}

class Run {
 public:
  Run(const std::string& folder, bool persist, bool fixed, u32 limit)
      : folder_(folder), persist_(persist), fixed_(fixed), limit_(limit) {
    for (u32 channel = 0; channel < kChannels; ++channel) {
      models_[channel].emplace(channel, persist, fixed, limit, file_);
    }
    Restart();
  }
  ~Run() { SetWritable(true); }

  void Step(kolvex_fuzz::Reader& reader) {
    const u8 operation = reader.Byte();
    const u32 channel = operation >> 7;
    CPrepositionList& list = *lists_[channel];
    PresetModel& model = *models_[channel];
    switch (operation % 12) {
      case 0:
      case 1:
      case 2: {
        const std::wstring name = Name(reader);
        Check(list.AddPreposition(name) == model.Add(name), "adding ends as it should");
        break;
      }
      case 3:
      case 4: {
        const std::wstring name = NameAt(reader, model);
        Check(list.SelectPreposition(name, 0) == model.Select(name), "selecting ends as it should");
        break;
      }
      case 5:
      case 6: {
        const std::wstring name = NameAt(reader, model);
        Check(list.DeletePreposition(name) == model.Delete(name), "deleting ends as it should");
        break;
      }
      case 7:
      case 8:
        list.ClearCurrentPreposition();
        model.Move();
        return Compare(channel, false);
      case 9:
        camera_.refuses = !camera_.refuses;
        models_[0]->cameraRefuses = models_[1]->cameraRefuses = camera_.refuses;
        return;
      case 10:
        SetWritable(!file_.writable);
        break;
      default:
        Edit(channel, reader);
        Restart();
        break;
    }
    Compare(channel, true);
  }

 private:
  // Mostly one that is there.
  std::wstring NameAt(kolvex_fuzz::Reader& reader, const PresetModel& model) const {
    const u8 byte = reader.Byte();
    return byte < 0xF0 ? model.NameAt(byte % (limit_ + 1)) : Name(reader);
  }

  std::string Away() const { return folder_ + ".away"; }
  void SetWritable(bool writable) {
    if (writable != file_.writable) {
      std::filesystem::rename(writable ? Away() : folder_, writable ? folder_ : Away());
      file_.writable = writable;
    }
  }

  // Somebody else's entry, at any index and slot.
  void Edit(u32 channel, kolvex_fuzz::Reader& reader) {
    SetWritable(true);
    const Position entry{reader.Byte() % (limit_ + 2), Name(reader)};
    const u32 index = reader.Byte() % (limit_ + 2);
    if (!PresetModel::IsValid(entry.name)) {
      return;
    }
    CXMLPrepositionReader file("Kolvex", folder_);
    Check(file.Open(kFile, false) && file.Write(channel, index, {entry.name, entry.slot}),
          "the file can be edited");
    file_.disk[channel][index] = entry;
  }

  void Restart() {
    SetWritable(true);
    file_.memory = file_.disk;
    TSmartPtr<CXMLPrepositionReader> reader;
    reader.Attach(new CXMLPrepositionReader("Kolvex", folder_));
    Check(reader->Open(kFile, false), "the file opens");
    for (u32 channel = 0; channel < kChannels; ++channel) {
      auto& list = lists_[channel] = std::make_unique<CPrepositionList>(channel, static_cast<u8>(persist_));
      if (fixed_) {
        list->SetFixedSlots();
      }
      list->SetCamera(&camera_, limit_);
      Check(list->SetReader(reader), "the list is loaded");
      models_[channel]->Load();
      Compare(channel, true);
    }
  }

  void Compare(u32 channel, bool fileToo) {
    CPrepositionList& list = *lists_[channel];
    PresetModel& model = *models_[channel];
    Check(list.GetPrepositionCount() == model.Count(), "as many as there should be");
    std::wstring name;
    for (u32 position = 0; position <= limit_; ++position) {
      Check(list.GetPrepositionName(position, name) == !model.NameAt(position).empty() &&
                name == model.NameAt(position),
            "each in its place");
    }
    Check(list.GetCurrentPreposition(name) == !model.Current().empty() && name == model.Current(),
          "the camera is where the list says");
    Check(camera_.sent == model.sent, "the camera gets what it should");
    camera_.sent.clear();
    model.sent.clear();
    if (fileToo && file_.writable) {
      CompareFile();
    }
  }

  void CompareFile() {
    CXMLPrepositionReader file("Kolvex", folder_);
    Check(file.Open(kFile, true), "the file opens");
    for (u32 channel = 0; channel < kChannels; ++channel) {
      for (u32 index = 0; index < limit_ + 2; ++index) {
        PrepositionRecord record;
        const bool there = file.Read(channel, index, record);
        const auto& entries = file_.disk[channel];
        const auto wanted = entries.find(index);
        Check(there == (wanted != entries.end()), "the file has the entries that were saved");
        Check(!there || (record.name == wanted->second.name && record.slot == wanted->second.slot),
              "an entry is what was saved");
      }
    }
  }

  const std::string folder_;
  const bool persist_;
  const bool fixed_;
  const u32 limit_;
  PresetFileModel file_;
  Camera camera_;
  std::array<std::optional<PresetModel>, kChannels> models_;
  std::array<std::unique_ptr<CPrepositionList>, kChannels> lists_;
};

}  // namespace

FUZZ_TARGET(PresetOperations) {
  static const TempFolder folder;
  kolvex_fuzz::Reader reader(input);
  const u8 setting = reader.Byte();
  Run run(folder.Emptied(), (setting & 3) != 0, (setting & 4) != 0, 1 + (setting >> 3) % 6);
  for (int steps = 0; !reader.IsEmpty() && steps < 50; ++steps) {
    run.Step(reader);
  }
}
