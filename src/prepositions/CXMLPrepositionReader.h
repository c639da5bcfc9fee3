#pragma once

#include <span>
#include <string>

#include "kolvex/Types.h"
#include "threads/COptex.h"
#include "xml/CXMLSettingsAPI.h"

namespace sarnevo {

/// One entry of a preset file.
struct PrepositionRecord {
  std::wstring name;
  u32 slot = 0;  // the camera's own number of the position, from 0
};

}  // namespace sarnevo

/// Reads and writes a camera's preset file: the names and slots of its stored positions, by PTZ channel and
/// file index, both counted from 0. docs/preset-file.md describes the format.
///
/// The lists of all PTZ channels of a camera share one reader. Any thread may call any operation, each is
/// atomic, and none throws but Read. The last reader to save wins where several have the same file open, in one
/// process or in several: its document replaces the file as a whole.
class CXMLPrepositionReader {
 public:
  /// @param rootName  the root element's name.
  /// @param folder    where the file lies; the folder of the host's executable when empty.
  explicit CXMLPrepositionReader(const std::string& rootName, std::string folder = {});
  virtual ~CXMLPrepositionReader();

  /// Opens the file. One that is missing, empty or no XML document is replaced by a new one with nothing but
  /// the root element, unless @p noCreate is set; what was in it is kept aside, with ".bad" after its name.
  /// False leaves a reader that reads nothing and whose writes fail.
  bool Open(const std::string& fileName, bool noCreate);

  /// False when there is no entry, or one without a name or a slot. Throws std::bad_alloc: an entry that there is
  /// no room for isn't missing.
  bool Read(sarnevo::u32 ptzChannel, sarnevo::u32 index, sarnevo::PrepositionRecord& record);

  /// Makes an entry or replaces it. False also when it couldn't be saved; the document in memory, and so the
  /// next save, then has it all the same. Without memory the document stays as it was.
  bool Write(sarnevo::u32 ptzChannel, sarnevo::u32 index, const sarnevo::PrepositionRecord& record);

  /// Removes a channel with all its entries. False when there was none, or it couldn't be saved.
  bool DeleteChannel(sarnevo::u32 ptzChannel);

  /// What became of a change.
  enum class Saving {
    Saved,
    NotSaved,  ///< in the document, where there is one, and so in the next save
    NotMade,   ///< the channel is as it was
  };
  /// Replaces a channel's entries by @p records, with their places as indexes, and saves once. No change of another
  /// channel comes in between; so a roll back undoes this channel's changes alone, and what has gathered (SetAutoSave).
  Saving Rewrite(sarnevo::u32 ptzChannel, std::span<const sarnevo::PrepositionRecord> records) noexcept;

  /// Off, changes gather in memory; on, each is saved at once, and what has gathered is saved now. On after a
  /// successful Open. False when what has gathered couldn't be saved.
  bool SetAutoSave(bool on);

 private:
  std::wstring ChannelPath(sarnevo::u32 ptzChannel) const;
  std::wstring EntryPath(sarnevo::u32 ptzChannel, sarnevo::u32 index) const;

  bool Change(sarnevo::u32 ptzChannel, sarnevo::u32 index, const sarnevo::PrepositionRecord& record) noexcept;
  sarnevo::i32 Remove(sarnevo::u32 ptzChannel) noexcept;
  Saving Save() noexcept;

  const std::string rootName_;
  sarnevo::COptex lock_;  // held through each operation, saving included; taken before the XML layer's
  CXMLSettingsAPI settings_;
  sarnevo::u8 autoSave_ = 0;  // under lock_
};
