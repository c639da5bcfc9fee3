#include "prepositions/CPrepositionList.h"

#include <algorithm>

#include "kolvex/IIPPTZApi.h"
#include "xml/Utf8.h"

namespace sarnevo {

CPrepositionList::CPrepositionList(u32 ptzChannel, u8 persist) : persist_(persist), ptzChannel_(ptzChannel) {}

CPrepositionList::~CPrepositionList() = default;

CPrepositionList::Hold::Hold(CPrepositionList& list) : guard_(list.lock_) {
  if (list.moved_.exchange(false, std::memory_order_relaxed)) {
    list.current_ = kNone;
  }
}

void CPrepositionList::SetCamera(IPrepositionComm* comm, u32 maxCount) {
  comm_ = comm;
  maxCount_ = maxCount;
}

// The six characters would need escaping somewhere on a name's way; what the file can't carry would make the
// whole file unreadable at the next start.
bool CPrepositionList::IsValidName(const std::wstring& name) {
  return !name.empty() && name.find_first_of(L"&!<>'\"") == std::wstring::npos &&
         CXMLSettingsAPI::CanHold(name);
}

void CPrepositionList::ClearList() {
  names_.clear();
  order_.clear();
  current_ = kNone;
}

bool CPrepositionList::FindFreeSlot(u32& slot) const {
  for (slot = 0; slot < maxCount_; ++slot) {
    if (!names_.contains(slot)) {
      return true;
    }
  }
  return false;
}

bool CPrepositionList::FindSlotByName(const std::wstring& name, u32& slot) const {
  for (const auto& [candidate, known] : names_) {
    if (known == name) {
      slot = candidate;
      return true;
    }
  }
  return false;
}

bool CPrepositionList::GetNameOfSlot(u32 slot, std::wstring& name) const {
  const auto entry = names_.find(slot);
  if (entry == names_.end()) {
    return false;
  }
  name = entry->second;
  return true;
}

bool CPrepositionList::GetNameAt(i32 position, std::wstring& name) const {
  return position >= 0 && static_cast<std::size_t>(position) < order_.size() &&
         GetNameOfSlot(order_[static_cast<std::size_t>(position)], name);
}

void CPrepositionList::AppendPlaceholder(u32 slot, std::map<u32, std::wstring>& names,
                                         std::vector<u32>& order) {
  names[slot] = L"empty p" + std::to_wstring(slot) + L" ";
  order.push_back(slot);
}

i32 CPrepositionList::AddPreposition(const std::wstring& name) {
  static constexpr char kOperation[] = "sarnevo::CPrepositionList::AddPreposition";
  if (comm_ == nullptr) {
    return PtzAddFailed;
  }
  if (!IsValidName(name)) {
    comm_->DebugMessage(DebugLevelFailure, "%s: A preposition \"%s\" cannot be added - the name is invalid.",
                        kOperation, ToUtf8(name).c_str());
    return PtzInvalidArgument;
  }
  const Hold hold(*this);
  if (current_ != kNone) {
    return RenameCurrent(name);
  }
  if (fixedSlots_ != 0) {
    return PtzAddFailed;
  }
  if (order_.size() >= maxCount_) {
    comm_->DebugMessage(DebugLevelFailure,
                        "%s: A preposition \"%s\" cannot be added. Camera supports saving not more than %u "
                        "prepositions.",
                        kOperation, ToUtf8(name).c_str(), maxCount_);
    return PtzLimitReached;
  }
  u32 slot = 0;
  if (!FindFreeSlot(slot)) {
    return PtzLimitReached;
  }
  // All memory is got first: once the camera has the position the list has it too.
  std::map<u32, std::wstring> entry{{slot, name}};
  order_.reserve(order_.size() + 1);
  if (!comm_->StorePreset(slot)) {
    return PtzAddFailed;
  }
  names_.merge(entry);
  order_.push_back(slot);
  current_ = static_cast<i32>(order_.size()) - 1;
  return persist_ != 0 ? WriteEntries(slot) : PtzDone;
}

i32 CPrepositionList::RenameCurrentPreposition(const std::wstring& name) {
  const Hold hold(*this);
  return RenameCurrent(name);
}

i32 CPrepositionList::RenameCurrent(const std::wstring& name) {
  if (current_ == kNone) {
    return PtzAddFailed;
  }
  if (static_cast<std::size_t>(current_) >= order_.size()) {
    return PtzInvalidArgument;
  }
  const u32 slot = order_[static_cast<std::size_t>(current_)];
  std::wstring oldName;
  if (!GetNameOfSlot(slot, oldName)) {
    return PtzAddFailed;
  }
  const std::string from = ToUtf8(oldName);
  const std::string to = ToUtf8(name);
  names_[slot] = name;
  if (comm_ != nullptr) {
    comm_->DebugMessage(DebugLevelEvent, "%s: A preposition with index %d was renamed from \"%s\" to \"%s\".",
                        "sarnevo::CPrepositionList::RenameCurrentPreposition", current_, from.c_str(),
                        to.c_str());
  }
  // From within the message the host may have moved the camera, renamed once more, or deleted. So the renamed position is
  // looked up again. When it is gone, the host's later order counts; with fixed slots nothing is stored.
  if (std::wstring now; !GetNameOfSlot(slot, now) || now != name) {
    return fixedSlots_ != 0 ? PtzAddFailed : PtzDone;
  }
  if (fixedSlots_ != 0 && (comm_ == nullptr || !comm_->StorePreset(slot))) {
    return PtzAddFailed;
  }
  // In normal mode the camera has the position already. The file must have the new name, or a restart would lose it.
  return persist_ != 0 || fixedSlots_ != 0 ? WriteEntries(slot) : PtzDone;
}

// Whether the file has what the list has, but for the entries of @p slot. It hasn't when indexes are missing in it, and
// when an earlier change didn't get there.
bool CPrepositionList::FileHasTheOthers(u32 slot) const {
  for (u32 index = 0; index < maxCount_; ++index) {
    PrepositionRecord record;
    const bool stored = reader_->Read(ptzChannel_, index, record);
    const bool listed = index < order_.size();
    const bool same = stored == listed &&
                      (!listed || (record.slot == order_[index] && record.name == names_.at(record.slot)));
    if (!same && !(listed && order_[index] == slot)) {
      return false;
    }
  }
  return true;
}

// Where the file differs, a position isn't its entry's index, and the entry would replace another one. Then the whole
// channel is written. With fixed slots gaps are in order. A slot may be in the list twice, when the file had it twice;
// the last of its entries counts at the next start.
i32 CPrepositionList::WriteEntries(u32 slot) {
  if (!reader_) {
    return PtzAddFailed;
  }
  if (fixedSlots_ == 0 && !FileHasTheOthers(slot)) {
    return Rewrite() == CXMLPrepositionReader::Saving::Saved ? PtzDone : PtzAddFailed;
  }
  bool saved = true;
  for (u32 position = 0; position < order_.size(); ++position) {
    saved = (order_[position] != slot || SavePreposition(position, slot, names_.at(slot))) && saved;
  }
  return saved ? PtzDone : PtzAddFailed;
}

bool CPrepositionList::SelectPreposition(const std::wstring& name, u32 option) {
  if (name.empty()) {
    return false;
  }
  const Hold hold(*this);
  u32 slot = 0;
  if (!FindSlotByName(name, slot)) {
    return false;
  }
  const auto entry = std::find(order_.begin(), order_.end(), slot);
  if (entry == order_.end()) {
    return false;
  }
  const auto position = static_cast<i32>(entry - order_.begin());
  if (current_ == position) {
    return true;
  }
  if (comm_ == nullptr || !comm_->GotoPreset(slot, option)) {
    return false;
  }
  current_ = position;
  return true;
}

bool CPrepositionList::DeletePreposition(const std::wstring& name) {
  const Hold hold(*this);
  if (fixedSlots_ != 0) {
    // The camera can only forget everything. The placeholders are made before it does.
    std::map<u32, std::wstring> names;
    std::vector<u32> order;
    for (u32 slot = 0; slot < maxCount_; ++slot) {
      AppendPlaceholder(slot, names, order);
    }
    if (comm_ == nullptr || !comm_->DeletePreset(0)) {
      return false;
    }
    ClearList();
    SavePrepositions();
    // Whether it was saved or not: the camera has forgotten them, and without placeholders nothing could be stored.
    names_.swap(names);
    order_.swap(order);
    current_ = 0;
    return true;
  }
  u32 slot = 0;
  if (name.empty() || !FindSlotByName(name, slot) || comm_ == nullptr) {
    return false;
  }
  if (comm_->DeletePreset(slot)) {
    names_.erase(slot);
    std::erase(order_, slot);
  }
  current_ = kNone;
  return persist_ == 0 || SavePrepositions();
}

bool CPrepositionList::SavePreposition(u32 index, u32 slot, const std::wstring& name) {
  return reader_ && reader_->Write(ptzChannel_, index, {name, slot});
}

// A disk that refuses isn't reported here: the next save has it.
bool CPrepositionList::SavePrepositions() {
  return reader_ && Rewrite() != CXMLPrepositionReader::Saving::NotMade;
}

CXMLPrepositionReader::Saving CPrepositionList::Rewrite() {
  std::vector<PrepositionRecord> records;
  for (const u32 slot : order_) {
    records.push_back({names_.at(slot), slot});
  }
  return reader_->Rewrite(ptzChannel_, records);
}

void CPrepositionList::LoadPrepositions() {
  ClearList();
  if (!reader_) {
    return;
  }
  for (u32 index = 0; index < maxCount_; ++index) {
    PrepositionRecord record;
    if (reader_->Read(ptzChannel_, index, record)) {
      names_[record.slot] = record.name;
      order_.push_back(record.slot);
    } else if (fixedSlots_ != 0) {
      AppendPlaceholder(index, names_, order_);
    }
  }
  if (fixedSlots_ != 0) {
    current_ = 0;
  }
}

bool CPrepositionList::SetReader(TSmartPtr<CXMLPrepositionReader> reader) {
  reader_ = reader;
  if (reader_) {
    const Hold hold(*this);
    LoadPrepositions();
  }
  return static_cast<bool>(reader);
}

u32 CPrepositionList::GetPrepositionCount() {
  if (fixedSlots_ != 0) {
    return maxCount_;
  }
  const Hold hold(*this);
  return static_cast<u32>(order_.size());
}

bool CPrepositionList::GetPrepositionName(u32 position, std::wstring& name) {
  name.clear();
  const Hold hold(*this);
  return position < order_.size() && GetNameAt(static_cast<i32>(position), name);
}

bool CPrepositionList::GetCurrentPreposition(std::wstring& name) {
  name.clear();
  const Hold hold(*this);
  return GetNameAt(current_, name);
}

void CPrepositionList::ClearCurrentPreposition() noexcept {
  if (fixedSlots_ == 0) {
    moved_.store(true, std::memory_order_relaxed);
  }
}

}  // namespace sarnevo
