#include "prepositions/CXMLPrepositionReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cwchar>
#include <optional>
#include <string_view>
#include <utility>

#include "xml/Guarded.h"
#include "xml/Utf8.h"

using sarnevo::COptexGuard;
using sarnevo::i32;
using sarnevo::PrepositionRecord;
using sarnevo::u32;

namespace {

// The elements of the file.
constexpr wchar_t kPreposition[] = L"Preposition";
constexpr wchar_t kPtzChannel[] = L"PtzChannel";
constexpr wchar_t kName[] = L"Name";
constexpr wchar_t kSlot[] = L"Slot";

// A step of a path: the element's name with a number of at least @p digits digits.
std::wstring Step(const wchar_t* element, int digits, u32 number) {
  std::array<wchar_t, 40> step{};
  std::swprintf(step.data(), step.size(), L"/%ls%.*u", element, digits, number);
  return step.data();
}

// The number that a text begins with, after blanks and a plus sign; what follows its digits doesn't count.
std::optional<u32> ScanNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\v\f"), text.size()));
  text.remove_prefix(text.starts_with('+') ? 1 : 0);
  u32 number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} ? std::optional(number) : std::nullopt;
}

}  // namespace

CXMLPrepositionReader::CXMLPrepositionReader(const std::string& rootName, std::string folder)
    : rootName_(rootName), settings_(std::move(folder)) {}

CXMLPrepositionReader::~CXMLPrepositionReader() = default;

bool CXMLPrepositionReader::Open(const std::string& fileName, bool noCreate) {
  const COptexGuard guard(lock_);
  // The XML layer never saves by itself: a full rewrite of a channel is to cost one save.
  bool opened = settings_.Open(fileName.c_str(), 0, 1) == CXMLSettingsAPI::kOk;
  if (!opened && !noCreate) {
    // A file that is good isn't replaced, and may open this time.
    settings_.CreateNewFile(fileName.c_str(), rootName_.c_str(), 1, false);
    opened = settings_.Open(fileName.c_str(), 0, 1) == CXMLSettingsAPI::kOk;
  }
  autoSave_ = opened ? 1 : 0;
  return opened;
}

std::wstring CXMLPrepositionReader::ChannelPath(u32 ptzChannel) const {
  return sarnevo::FromUtf8(rootName_).value_or(L"") + Step(kPtzChannel, 2, ptzChannel + 1);
}

std::wstring CXMLPrepositionReader::EntryPath(u32 ptzChannel, u32 index) const {
  return ChannelPath(ptzChannel) + Step(kPreposition, 3, index);
}

bool CXMLPrepositionReader::Read(u32 ptzChannel, u32 index, PrepositionRecord& record) {
  const COptexGuard guard(lock_);
  const std::wstring entry = EntryPath(ptzChannel, index);
  record.name = settings_.GetString(L"%ls/%ls", entry.c_str(), kName);
  // A name that can't be written again would end the next rewriting of its channel halfway.
  if (record.name.empty() || !CXMLSettingsAPI::CanHold(record.name)) {
    return false;
  }
  const auto slot = ScanNumber(sarnevo::ToUtf8(settings_.GetString(L"%ls/%ls", entry.c_str(), kSlot)));
  record.slot = slot.value_or(record.slot);
  return slot.has_value();
}

bool CXMLPrepositionReader::Write(u32 ptzChannel, u32 index, const PrepositionRecord& record) {
  const COptexGuard guard(lock_);
  if (!Change(ptzChannel, index, record)) {
    return false;
  }
  return autoSave_ == 0 || Save() == Saving::Saved;
}

bool CXMLPrepositionReader::DeleteChannel(u32 ptzChannel) {
  const COptexGuard guard(lock_);
  return Remove(ptzChannel) > 0 && (autoSave_ == 0 || Save() == Saving::Saved);
}

CXMLPrepositionReader::Saving CXMLPrepositionReader::Rewrite(
    u32 ptzChannel, std::span<const PrepositionRecord> records) noexcept {
  const COptexGuard guard(lock_);
  autoSave_ = 0;
  bool made = Remove(ptzChannel) >= 0;  // there may be nothing to remove
  for (u32 index = 0; made && index < records.size(); ++index) {
    made = Change(ptzChannel, index, records[index]);
  }
  autoSave_ = 1;
  if (!made) {
    settings_.RollBack();
    return Saving::NotMade;
  }
  return Save();
}

bool CXMLPrepositionReader::SetAutoSave(bool on) {
  const COptexGuard guard(lock_);
  if ((autoSave_ != 0) == on) {
    return true;
  }
  autoSave_ = on ? 1 : 0;
  return !on || Save() == Saving::Saved;
}

CXMLPrepositionReader::Saving CXMLPrepositionReader::Save() noexcept {
  const i32 saved = settings_.Save();
  return saved < 0 ? Saving::NotMade : saved == 1 ? Saving::Saved : Saving::NotSaved;
}

// One entry in the document; whole or not at all, unless changes gather.
bool CXMLPrepositionReader::Change(u32 ptzChannel, u32 index, const PrepositionRecord& record) noexcept {
  const bool done = sarnevo::Guarded(false, [&] {
    const std::wstring entry = EntryPath(ptzChannel, index);
    const std::wstring slot = std::to_wstring(record.slot);
    return settings_.SetString(record.name.c_str(), L"%ls/%ls", entry.c_str(), kName) > 0 &&
           settings_.SetString(slot.c_str(), L"%ls/%ls", entry.c_str(), kSlot) > 0;
  });
  if (!done && autoSave_ != 0) {
    settings_.RollBack();
  }
  return done;
}

// As CXMLSettingsAPI::Delete.
i32 CXMLPrepositionReader::Remove(u32 ptzChannel) noexcept {
  return sarnevo::Guarded(
      -1, [&] { return settings_.Delete("%s", sarnevo::ToUtf8(ChannelPath(ptzChannel)).c_str()); });
}
