#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kolvex/Types.h"

namespace kolvex_fuzz {

using sarnevo::i32;
using sarnevo::u32;

/// A stored position: the camera's number and the host's name.
struct Position {
  u32 slot = 0;
  std::wstring name;
  bool operator==(const Position&) const = default;
};

/// The preset file as it should be in memory and on the disk: positions by channel and index.
struct PresetFileModel {
  using Content = std::map<u32, std::map<u32, Position>>;
  Content memory;
  Content disk;
  bool writable = true;

  bool Save() {
    disk = writable ? memory : disk;
    return writable;
  }
};

/// A camera's list of positions, as an operator would keep it on paper beside the camera and the file.
class PresetModel {
 public:
  PresetModel(u32 channel, bool persist, bool fixed, u32 limit, PresetFileModel& file)
      : channel_(channel), persist_(persist), fixed_(fixed), limit_(limit), file_(file) {}

  bool cameraRefuses = false;
  std::string sent;  ///< the commands that the camera gets

  void Load() {
    list_.clear();
    for (u32 index = 0; index < limit_; ++index) {
      const auto& entries = file_.memory[channel_];
      const auto entry = entries.find(index);
      if (entry != entries.end()) {
        Append(entry->second);
      } else if (fixed_) {
        Append(Placeholder(index));
      }
    }
    current_ = fixed_ ? std::optional<std::size_t>(0) : std::nullopt;
  }

  i32 Add(const std::wstring& name) {
    if (!IsValid(name)) {
      return -3;
    }
    if (current_) {
      const u32 slot = list_[*current_].slot;
      Rename(slot, name);
      return fixed_ && !Command("store", slot) ? -18 : Written(*current_);
    }
    u32 slot = 0;
    while (std::ranges::any_of(list_, [slot](const Position& known) { return known.slot == slot; })) {
      ++slot;
    }
    if (list_.size() >= limit_ || slot >= limit_) {
      return -26;
    }
    if (!Command("store", slot)) {
      return -18;
    }
    list_.push_back({slot, name});
    current_ = list_.size() - 1;
    return Written(*current_);
  }

  bool Select(const std::wstring& name) {
    const auto slot = SlotOf(name);
    if (!slot) {
      return false;
    }
    const auto position =
        static_cast<std::size_t>(std::ranges::find(list_, *slot, &Position::slot) - list_.begin());
    if (current_ == position) {
      return true;
    }
    const bool gone = Command("go", *slot);
    current_ = gone ? position : current_;
    return gone;
  }

  bool Delete(const std::wstring& name) {
    if (fixed_) {
      if (!Command("delete", 0)) {
        return false;
      }
      list_.clear();
      Rewrite();
      for (u32 slot = 0; slot < limit_; ++slot) {
        Append(Placeholder(slot));
      }
      current_ = 0;
      return true;
    }
    const auto slot = SlotOf(name);
    if (!slot) {
      return false;
    }
    if (Command("delete", *slot)) {
      std::erase_if(list_, [slot](const Position& known) { return known.slot == *slot; });
    }
    current_.reset();
    if (persist_) {
      Rewrite();
    }
    return true;
  }

  void Move() { current_ = fixed_ ? current_ : std::nullopt; }

  u32 Count() const { return fixed_ ? limit_ : static_cast<u32>(list_.size()); }
  std::wstring NameAt(u32 position) const { return position < list_.size() ? list_[position].name : L""; }
  std::wstring Current() const { return current_ ? list_[*current_].name : L""; }

  /// What both an operator and XML 1.0 can write.
  static bool IsValid(const std::wstring& name) {
    return !name.empty() && std::ranges::all_of(name, [](wchar_t c) {
      const auto code = static_cast<u32>(c);
      const bool isXml = code == 9 || code == 10 || code == 13 || (code >= 0x20 && code < 0xD800) ||
                         (code >= 0xE000 && code < 0xFFFE) || (code >= 0x10000 && code < 0x110000);
      return isXml && std::wstring_view(L"&!<>'\"").find(c) == std::wstring_view::npos;
    });
  }

 private:
  static Position Placeholder(u32 slot) { return {slot, L"empty p" + std::to_wstring(slot) + L" "}; }

  bool Command(const char* what, u32 slot) {
    sent += what + std::string(" ") + std::to_string(slot) + ";";
    return !cameraRefuses;
  }

  // One slot has one name, wherever it is.
  void Rename(u32 slot, const std::wstring& name) {
    for (Position& known : list_) {
      known.name = known.slot == slot ? name : known.name;
    }
  }

  void Append(const Position& position) {
    Rename(position.slot, position.name);
    list_.push_back(position);
  }

  std::optional<u32> SlotOf(const std::wstring& name) const {
    std::optional<u32> lowest;
    for (const Position& known : list_) {
      if (!name.empty() && known.name == name) {
        lowest = std::min(lowest.value_or(known.slot), known.slot);
      }
    }
    return lowest;
  }

  bool Rewrite() {
    auto& entries = file_.memory[channel_];
    entries.clear();
    for (u32 index = 0; index < list_.size(); ++index) {
      entries[index] = list_[index];
    }
    return file_.Save();
  }

  // Only what the list can see counts; what lies beyond the camera's limit stays until a rewriting.
  bool FileHasAllBut(u32 slot) const {
    const auto& entries = file_.memory[channel_];
    for (u32 index = 0; index < limit_; ++index) {
      const auto entry = entries.find(index);
      const Position* const listed = index < list_.size() ? &list_[index] : nullptr;
      const bool ofSlot = listed != nullptr && listed->slot == slot;
      if (!ofSlot &&
          (entry != entries.end() ? listed == nullptr || *listed != entry->second : listed != nullptr)) {
        return false;
      }
    }
    return true;
  }

  i32 Written(std::size_t position) {
    if (!persist_ && !fixed_) {
      return 1;
    }
    const u32 slot = list_[position].slot;
    if (!fixed_ && !FileHasAllBut(slot)) {
      return Rewrite() ? 1 : -18;
    }
    for (u32 index = 0; index < list_.size(); ++index) {
      if (list_[index].slot == slot) {
        file_.memory[channel_][index] = list_[index];
      }
    }
    return file_.Save() ? 1 : -18;
  }

  const u32 channel_;
  const bool persist_;
  const bool fixed_;
  const u32 limit_;
  PresetFileModel& file_;
  std::vector<Position> list_;
  std::optional<std::size_t> current_;
};

}  // namespace kolvex_fuzz
