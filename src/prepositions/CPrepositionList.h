#pragma once

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "kolvex/Types.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "prepositions/IPrepositionComm.h"
#include "prepositions/TSmartPtr.h"
#include "threads/COptex.h"

namespace sarnevo {

/// The named stored positions ("prepositions") of one PTZ channel. The camera keeps each position under a
/// small number, its slot, and knows nothing of names; this list keeps the names, their order as the host
/// sees it and the one that the camera is at, in step with the camera and with the preset file.
///
/// Two modes. Normal: the list holds what has been stored, a free slot is chosen by the list, and any
/// movement makes the current one unknown. With fixed slots (a camera that stores to the slot last gone to
/// and forgets only everything at once): all slots are shown, placeholders where nothing is stored, one of
/// them is always current, and adding a name stores at that one. Nobody can ask such a head where it
/// is: after loading, and after deleting everything, it counts as being at slot 0.
///
/// Positions and slots count from 0. Any thread may call, also several at once. An operation holds the list's
/// lock while it waits for the camera and the disk, so that the others wait as long. The order of locks is
/// this one, the reader's, the XML layer's.
class CPrepositionList {
 public:
  /// @param persist  not 0: what is added, renamed or deleted is written to the file; with fixed slots it always is.
  CPrepositionList(u32 ptzChannel, u8 persist);
  CPrepositionList(const CPrepositionList&) = delete;
  CPrepositionList& operator=(const CPrepositionList&) = delete;

  /// These two are called before SetReader, if at all, and before any other operation.
  void SetFixedSlots() { fixedSlots_ = 1; }
  /// @param comm      not owned; outlives this object.
  /// @param maxCount  the most positions that the camera stores.
  void SetCamera(IPrepositionComm* comm, u32 maxCount);

 protected:
  // The order of the virtual operations is fixed; the first three are run under the lock.
  virtual bool SavePreposition(u32 index, u32 slot, const std::wstring& name);
  /// Rewrites the channel in the file, without gaps.
  virtual bool SavePrepositions();
  virtual void LoadPrepositions();

 public:
  /// Writes nothing.
  virtual ~CPrepositionList();

  /// Shares the reader and loads the list through it. False when the argument is empty.
  virtual bool SetReader(TSmartPtr<CXMLPrepositionReader> reader);
  virtual u32 GetPrepositionCount();
  /// False, and an empty name, past the end.
  virtual bool GetPrepositionName(u32 position, std::wstring& name);
  /// Moves the camera to a preposition, unless it is there already. @p option is passed on to the camera.
  virtual bool SelectPreposition(const std::wstring& name, u32 option);
  /// Stores where the camera looks now, under a name. At a known preposition this renames it. Gives a PtzStatus:
  /// PtzInvalidArgument for a name that can't be taken; PtzAddFailed without a camera, when a command or the file
  /// write failed, and when there is nothing to rename.
  virtual i32 AddPreposition(const std::wstring& name);
  /// Normal: true also for a camera that refused; the preposition then stays. With fixed slots everything is
  /// forgotten, whatever the name.
  virtual bool DeletePreposition(const std::wstring& name);
  /// False when the camera is at none.
  virtual bool GetCurrentPreposition(std::wstring& name);

  /// Renames the current preposition; with fixed slots also stores where the camera looks now.
  i32 RenameCurrentPreposition(const std::wstring& name);
  /// The camera has moved. With fixed slots this changes nothing. The one operation that never waits for
  /// another, since a movement must not wait for a camera that hangs in a recall.
  void ClearCurrentPreposition() noexcept;

 private:
  // The list's lock for one operation. Movements up to its beginning are taken note of; later ones count as
  // coming after the operation.
  class Hold {
   public:
    explicit Hold(CPrepositionList& list);

   private:
    const COptexGuard guard_;
  };

  static constexpr i32 kNone = -1;

  static bool IsValidName(const std::wstring& name);
  i32 RenameCurrent(const std::wstring& name);
  void ClearList();
  bool FindFreeSlot(u32& slot) const;
  bool FindSlotByName(const std::wstring& name, u32& slot) const;
  bool GetNameOfSlot(u32 slot, std::wstring& name) const;
  bool GetNameAt(i32 position, std::wstring& name) const;
  static void AppendPlaceholder(u32 slot, std::map<u32, std::wstring>& names, std::vector<u32>& order);
  bool FileHasTheOthers(u32 slot) const;
  i32 WriteEntries(u32 slot);
  CXMLPrepositionReader::Saving Rewrite();

  // Constant once the camera is set.
  const u8 persist_;
  const u32 ptzChannel_;
  IPrepositionComm* comm_ = nullptr;  // not owned
  u32 maxCount_ = 0;
  u8 fixedSlots_ = 0;

  // Copied by the thread that builds the PTZ objects, before any other operation.
  TSmartPtr<CXMLPrepositionReader> reader_;

  // Set by movements, from any thread; spent under lock_. Relaxed is enough: nothing else goes with it.
  std::atomic<bool> moved_{false};

  COptex lock_;
  // Guarded by lock_. Each entry of order_ is a key of names_, and each key is an entry.
  std::map<u32, std::wstring> names_;  // by slot
  std::vector<u32> order_;             // slots, in the order that the host sees
  i32 current_ = kNone;                // a position in order_
};

}  // namespace sarnevo
