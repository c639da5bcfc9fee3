#include "xml/CXMLSettingsAPI.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <new>
#include <optional>
#include <utility>

#include "platform/File.h"
#include "platform/FileReplacement.h"
#include "platform/HostProcess.h"
#include "xml/CDinaFileBase.h"
#include "xml/Guarded.h"
#include "xml/Utf8.h"
#include "xml/XmlPath.h"

using sarnevo::COptexGuard;
using sarnevo::Guarded;
using sarnevo::i32;
using sarnevo::u32;
using sarnevo::platform::File;
using sarnevo::xml::XmlDocument;

namespace {

constexpr char kValue[] = "value";  // the one attribute that holds settings
// Longest text of a path with its end, in characters of the format's type; what goes beyond is cut off.
constexpr std::size_t kPathRoom = 1024;

// A path in UTF-8; nothing without memory.
std::optional<std::string> FormatPath(const wchar_t* format, std::va_list arguments) noexcept {
  std::array<wchar_t, kPathRoom> buffer{};
  // A text that doesn't fit counts as a failure here, but what fits has been written.
  static_cast<void>(std::vswprintf(buffer.data(), buffer.size(), format, arguments));
  buffer.back() = L'\0';
  return Guarded(std::optional<std::string>(), [&] { return std::optional(sarnevo::ToUtf8(buffer.data())); });
}

[[gnu::format(printf, 1, 0)]] std::optional<std::string> FormatPath(const char* format,
                                                                    std::va_list arguments) noexcept {
  std::array<char, kPathRoom> buffer{};
  static_cast<void>(std::vsnprintf(buffer.data(), buffer.size(), format, arguments));
  return Guarded(std::optional<std::string>(), [&] { return std::optional<std::string>(buffer.data()); });
}

// Only a name by itself: part of it comes from a camera, which mustn't choose where the host writes.
bool IsBareName(std::string_view name) {
  return !name.empty() && name.find_first_of("/\\") == std::string_view::npos && name != "." && name != "..";
}

// A file that is there but can't be read just now may hold an operator's names, and is no reason to begin
// a new one.
bool MayBeReplaced(const std::string& path, bool overGood) {
  File file;
  const auto opened = file.Open(path, File::Access::Read, File::IfMissing::Fail);
  if (opened != File::OpenResult::Opened) {
    return opened == File::OpenResult::Missing;
  }
  if (file.Size() > XmlDocument::kMaxBytes) {
    return true;
  }
  const auto content = file.ReadAll(XmlDocument::kMaxBytes);
  if (!content) {
    return false;
  }
  const auto result = XmlDocument().Parse(*content);
  return result == XmlDocument::ParseResult::Malformed ||
         (overGood && result == XmlDocument::ParseResult::Parsed);
}

}  // namespace

CXMLSettingsAPI::CXMLSettingsAPI(std::string folder) : folder_(std::move(folder)) {}

CXMLSettingsAPI::~CXMLSettingsAPI() { Close(); }

std::string CXMLSettingsAPI::FullPath(const char* fileName) const {
  if (fileName == nullptr || !IsBareName(fileName)) {
    return {};
  }
  const auto folder = folder_.empty() ? sarnevo::platform::HostExecutableFolder() : folder_;
  return folder ? *folder + '/' + fileName : std::string();
}

bool CXMLSettingsAPI::Load(const std::string& path, u32 autoSave) {
  File file;
  if (file.Open(path, File::Access::Read, File::IfMissing::Fail) != File::OpenResult::Opened) {
    return false;
  }
  auto content = file.ReadAll(XmlDocument::kMaxBytes);
  const COptexGuard guard(documentLock_);
  if (!content || document_.Parse(*content) != XmlDocument::ParseResult::Parsed) {
    return false;
  }
  text_ = std::move(*content);
  path_ = path;
  autoSave_ = autoSave;
  sarnevo::platform::RemoveLeftovers(path);
  return true;
}

CXMLSettingsAPI::Result CXMLSettingsAPI::Open(const char* fileName, u32 autoSave, u32 initialiseCom) noexcept {
  return Guarded(kFail, [&] {
    const COptexGuard guard(openLock_);
    if (openCount_.load(std::memory_order_relaxed) == 0) {
      initialiseCom_ = initialiseCom;
      const std::string path = FullPath(fileName);
      if (!CDinaFileBase().IsNonEmpty(path.c_str()) || !Load(path, autoSave)) {
        return kFail;
      }
    }
    openCount_.fetch_add(1, std::memory_order_release);
    return kOk;
  });
}

u32 CXMLSettingsAPI::Close() noexcept {
  const COptexGuard guard(openLock_);
  if (openCount_.load(std::memory_order_relaxed) == 0) {
    return 0;
  }
  const u32 left = openCount_.fetch_sub(1, std::memory_order_release) - 1;
  if (left == 0) {
    const COptexGuard documentGuard(documentLock_);
    document_.Clear();
    text_.clear();
  }
  return left;
}

i32 CXMLSettingsAPI::CreateNewFile(const char* fileName, const char* rootName, u32, bool overGood) noexcept {
  if (IsOpen()) {
    return 0;
  }
  return Guarded(0, [&] {
    const std::string path = FullPath(fileName);
    if (path.empty() || rootName == nullptr || !XmlDocument::IsElementName(rootName) ||
        !MayBeReplaced(path, overGood)) {
      return 0;
    }
    const std::string text = std::string(XmlDocument::kDeclaration) + "<" + rootName + "/>";
    return ReplaceFile(path, text, sarnevo::platform::OldContent::KeepAside) ? 1 : 0;
  });
}

i32 CXMLSettingsAPI::Save() noexcept {
  const i32 saved = OnDocument(-1, std::string(), [&](const std::string&) { return SaveDocument(); });
  if (saved < 0) {
    RollBack();
  }
  return saved;
}

i32 CXMLSettingsAPI::SaveIfAutomatic() { return autoSave_ == 0 || SaveDocument() == 1 ? 1 : 0; }

i32 CXMLSettingsAPI::SaveDocument() {
  auto text = document_.Print();
  if (!text) {
    return -1;
  }
  text_ = std::move(*text);
  // What is in the text stays, also when there is no memory for its way to the disk.
  return Guarded(0, [&] { return sarnevo::platform::ReplaceFile(path_, text_) ? 1 : 0; });
}

// The next operation takes the document from its text again, and fails for as long as there is no memory for that.
void CXMLSettingsAPI::RollBack() noexcept {
  const COptexGuard guard(documentLock_);
  document_.Clear();
}

void CXMLSettingsAPI::TakeBack() {
  if (!document_.HasContent() && document_.Parse(text_) != XmlDocument::ParseResult::Parsed) {
    throw std::bad_alloc();
  }
}

// One operation on the open document. Want of memory gives @p failure.
template <typename Operation>
i32 CXMLSettingsAPI::OnDocument(i32 failure, const std::optional<std::string>& path,
                                Operation operation) noexcept {
  if (!path) {
    return failure;
  }
  return Guarded(failure, [&] {
    const COptexGuard guard(documentLock_);
    if (!IsOpen()) {
      return 0;
    }
    TakeBack();
    return operation(*path);
  });
}

std::wstring CXMLSettingsAPI::GetString(const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const auto path = FormatPath(format, arguments);
  va_end(arguments);
  if (!path) {
    throw std::bad_alloc();
  }
  const COptexGuard guard(documentLock_);
  if (!IsOpen()) {
    return {};
  }
  TakeBack();
  const Element* const element = document_.Select(*path);
  const auto value = element != nullptr ? document_.GetAttribute(element, kValue) : std::nullopt;
  return sarnevo::FromUtf8(value.value_or("")).value_or(L"");
}

bool CXMLSettingsAPI::CanHold(std::wstring_view value) {
  // What is no character would come back as another one.
  const std::string text = sarnevo::ToUtf8(value);
  return text.size() <= XmlDocument::kMaxValueBytes && sarnevo::IsXmlText(text) &&
         sarnevo::FromUtf8(text) == value;
}

i32 CXMLSettingsAPI::SetString(const wchar_t* value, const wchar_t* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  const auto formatted = FormatPath(format, arguments);
  va_end(arguments);
  return OnDocument(0, formatted, [&](const std::string& path) {
    const std::wstring_view wanted = value == nullptr ? L"" : value;
    // Refused before an element is made for it.
    if (!CanHold(wanted)) {
      return 0;
    }
    Element* const element = CreateElements(path) != 0 ? document_.Select(path) : nullptr;
    if (element == nullptr || AddAttribute(element, kValue, sarnevo::ToUtf8(wanted)) == 0) {
      return 0;
    }
    return SaveIfAutomatic();
  });
}

i32 CXMLSettingsAPI::AddAttribute(Element* element, const std::string& name,
                                  const std::string& value) noexcept {
  return document_.SetAttribute(element, name, value) ? 1 : 0;
}

i32 CXMLSettingsAPI::CreatePath(const wchar_t* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  const auto formatted = FormatPath(format, arguments);
  va_end(arguments);
  return OnDocument(0, formatted, [&](const std::string& path) { return CreateElements(path); });
}

i32 CXMLSettingsAPI::CreateElements(std::string_view path) {
  if (document_.Select(path) != nullptr) {
    return 1;
  }
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || slash == 0) {
    return 0;  // a document has one root element, and that is made with the file
  }
  const std::string_view parentPath = path.substr(0, slash);
  static_cast<void>(CreateElements(parentPath));
  Element* const parent = document_.Select(parentPath);
  return parent != nullptr && AddElement(parent, path.substr(slash + 1)) ? SaveIfAutomatic() : 0;
}

bool CXMLSettingsAPI::AddElement(Element* parent, std::string_view path) {
  const auto step = sarnevo::xml::TakeXmlStep(path);
  const std::string name(step ? step->name : "");
  if (!XmlDocument::IsElementName(name)) {
    return false;
  }
  // White space that keeps the file readable: the element on a line of its own, its end tag and whatever
  // follows it indented by the depth.
  const std::size_t depth = document_.Depth(parent);
  const std::string outer(depth - 2, '\t');
  document_.AppendText(parent, outer);
  Element* const element = document_.AppendElement(parent, name);
  if (element == nullptr) {
    return false;
  }
  document_.AppendText(element, "\n" + outer + "\t");
  document_.AppendText(parent, "\n" + outer);
  for (const auto& [attribute, value] : step->conditions) {
    AddAttribute(element, std::string(attribute), std::string(value));
  }
  return true;
}

i32 CXMLSettingsAPI::Exists(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  const auto formatted = FormatPath(format, arguments);
  va_end(arguments);
  return OnDocument(0, formatted,
                    [&](const std::string& path) { return document_.Select(path) != nullptr ? 1 : 0; });
}

i32 CXMLSettingsAPI::Delete(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  const auto formatted = FormatPath(format, arguments);
  va_end(arguments);
  return OnDocument(-1, formatted, [&](const std::string& path) {
    Element* const element = document_.Select(path);
    return element != nullptr && document_.Remove(element) ? SaveIfAutomatic() : 0;
  });
}
