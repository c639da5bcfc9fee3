#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "kolvex/Types.h"
#include "threads/COptex.h"
#include "xml/XmlDocument.h"

/// Makes an XML file look like a tree of settings. A setting is addressed by the names of the elements that
/// lead to it, from the root's down, joined by "/"; its value is the attribute "value" of the last one. A
/// write makes the elements that are missing.
///
/// Paths are printf-style formats with their arguments, of which the first 1023 characters count. The last
/// name of a path may carry conditions like [@id="7"], which become attributes where the element is made.
/// Narrow paths and names are UTF-8. A missing element, a missing attribute and an empty one read alike, as an
/// empty text.
///
/// Any thread may call any operation. The document lives in memory; saving replaces the whole file in one
/// step, so that a crash or a full disk leaves the old or the new one. Each failure is the operation's failure
/// value, and nothing is thrown but by GetString.
class CXMLSettingsAPI {
 public:
  /// An HRESULT-style result.
  using Result = sarnevo::i32;
  static constexpr Result kOk = 0;
  static constexpr Result kFail = static_cast<Result>(0x80004005);  // E_FAIL

  /// @param folder  where files lie; the folder of the host's executable when empty.
  explicit CXMLSettingsAPI(std::string folder = {});
  /// Closes once.
  virtual ~CXMLSettingsAPI();
  CXMLSettingsAPI(const CXMLSettingsAPI&) = delete;
  CXMLSettingsAPI& operator=(const CXMLSettingsAPI&) = delete;

  /// Loads a file, or counts one more user of the file that is open already, whatever the arguments say.
  /// @param fileName       without a folder: a name with a separator in it can't be opened.
  /// @param autoSave       not 0: each change is saved at once.
  /// @param initialiseCom  nothing here needs it.
  /// @return kOk, or a negative code for a file that is missing, empty, unreadable or no XML document.
  Result Open(const char* fileName, sarnevo::u32 autoSave, sarnevo::u32 initialiseCom) noexcept;

  /// Gives back one Open; the last one lets the document go, without saving it.
  /// @return how many are left.
  sarnevo::u32 Close() noexcept;

  /// Writes a document of nothing but a root element to the disk, without opening it. What lay there before
  /// is kept aside under the file's name with ".bad" after it (see platform/FileReplacement.h); a file that
  /// is there but can't be read is left alone.
  /// @param overGood  false: so is one that holds a document, whatever it was that Open failed for.
  /// @return 1 done; 0 not done, also when this object is open.
  sarnevo::i32 CreateNewFile(const char* fileName, const char* rootName, sarnevo::u32 initialiseCom,
                             bool overGood = true) noexcept;

  /// Whether a file can carry the value and give it back: a text of XML 1.0 of at most 1 MiB in UTF-8.
  static bool CanHold(std::wstring_view value);

  // The following give 1 for success and 0 for failure; all fail while the object is closed.

  /// -1 when the document couldn't be put into text, for want of memory or since it is too large: all changes since the
  /// last save are taken back.
  sarnevo::i32 Save() noexcept;
  /// Throws std::bad_alloc when there is no memory for the value.
  std::wstring GetString(const wchar_t* format, ...);
  /// Fails for what CanHold refuses, and then changes nothing.
  sarnevo::i32 SetString(const wchar_t* value, const wchar_t* format, ...) noexcept;
  /// Makes the element and those above it where they are missing, but no root element.
  sarnevo::i32 CreatePath(const wchar_t* format, ...) noexcept;
  [[gnu::format(printf, 2, 3)]] sarnevo::i32 Exists(const char* format, ...) noexcept;
  /// Removes the element with all that it holds. White space around it stays. -1 when it couldn't be looked for.
  [[gnu::format(printf, 2, 3)]] sarnevo::i32 Delete(const char* format, ...) noexcept;

  /// Takes back all changes since the document was opened or last saved. A save that only the disk refused counts as
  /// well: its changes stay. Needs no memory. The operation after it does, and fails when there is none.
  void RollBack() noexcept;

 private:
  using Element = sarnevo::xml::XmlElement;

  bool IsOpen() const noexcept { return openCount_.load(std::memory_order_acquire) != 0; }
  /// Empty when the name isn't one by itself.
  std::string FullPath(const char* fileName) const;
  bool Load(const std::string& path, sarnevo::u32 autoSave);
  void TakeBack();
  template <typename Operation>
  sarnevo::i32 OnDocument(sarnevo::i32 failure, const std::optional<std::string>& path,
                          Operation operation) noexcept;
  sarnevo::i32 CreateElements(std::string_view path);
  bool AddElement(Element* parent, std::string_view path);
  /// Makes the attribute or changes it. 1, or 0.
  sarnevo::i32 AddAttribute(Element* element, const std::string& name, const std::string& value) noexcept;
  sarnevo::i32 SaveIfAutomatic();
  sarnevo::i32 SaveDocument();

  const std::string folder_;

  sarnevo::COptex openLock_;  // taken before documentLock_
  // Written under openLock_; any thread reads it.
  std::atomic<sarnevo::u32> openCount_{0};
  sarnevo::u32 initialiseCom_ = 1;  // under openLock_

  sarnevo::COptex documentLock_;  // recursive: a write makes its path under it; held while saving
  // Guarded by documentLock_.
  sarnevo::xml::XmlDocument document_;  // without content while open: rolled back, to be taken from text_ again
  std::string text_;                    // of the document when it was opened or last saved
  std::string path_;
  sarnevo::u32 autoSave_ = 0;
};
