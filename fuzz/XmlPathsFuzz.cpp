// Paths of any text, one a line, made and written through in a settings file that an input begins: whatever is
// asked for, what is said to be there is there, what was refused changes no value, and the saved file can be read
// again and holds the same.
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "support/TempFolder.h"
#include "xml/CXMLSettingsAPI.h"
#include "xml/Utf8.h"

namespace {

using kolvex_fuzz::Check;

constexpr const char* kFile = "settings.xml";

// "%" is no conversion here: paths come through a format of their own.
bool Exists(CXMLSettingsAPI& settings, const std::string& path) {
  return settings.Exists("%s", path.c_str()) == 1;
}

std::wstring Get(CXMLSettingsAPI& settings, const std::wstring& path) {
  return settings.GetString(L"%ls", path.c_str());
}

}  // namespace

FUZZ_TARGET(XmlPaths) {
  static const TempFolder own;
  const std::string& folder = own.Emptied();
  CXMLSettingsAPI settings(folder);
  std::string_view rest(reinterpret_cast<const char*>(input.data()), input.size());
  // A first line that begins with "<" is the file.
  if (rest.starts_with('<')) {
    const std::string_view document = rest.substr(0, rest.find('\n'));
    std::ofstream(std::filesystem::path(folder) / kFile, std::ios::binary) << document;
    rest.remove_prefix(std::min(document.size() + 1, rest.size()));
  } else {
    Check(settings.CreateNewFile(kFile, "Kolvex", 1) == 1, "a new file is made");
  }
  if (settings.Open(kFile, 0, 1) != CXMLSettingsAPI::kOk) {
    return;  // no document
  }
  std::map<std::wstring, std::wstring> written;
  for (int lines = 0; !rest.empty() && lines < 16; ++lines) {
    const std::string line(rest.substr(0, rest.find('\n')));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const auto path = sarnevo::FromUtf8(line);
    if (!path || path->find(L'\0') != path->npos || path->size() > 1000) {
      continue;  // doesn't get through the formats as it is
    }
    const bool before = Exists(settings, line);
    const bool made = settings.CreatePath(L"%ls", path->c_str()) == 1;
    Check(!before || made, "what is there needs no making");
    if (const bool after = Exists(settings, line); !after) {
      // A condition that a name can't have, or that the maker understands and the selection doesn't.
      Check(settings.SetString(L"x", L"%ls", path->c_str()) == 0, "no value without an element");
      continue;
    }
    const std::wstring value = L"<" + std::to_wstring(lines) + L"&\"'\t\u20AC>";
    const std::wstring old = Get(settings, *path);
    Check(settings.SetString(L"\x1", L"%ls", path->c_str()) == 0 && Get(settings, *path) == old,
          "a refused value changes nothing");
    // A condition on the value that is set chooses another element after that, or none.
    const bool chosenByValue = line.find("value") != line.npos;
    if (settings.SetString(value.c_str(), L"%ls", path->c_str()) == 1 && !chosenByValue) {
      Check(Get(settings, *path) == value, "what was written is what is read");
      written[*path] = value;
    }
  }
  // A later line may have written to an earlier one's element by another name; what counts is the document.
  for (auto& [path, value] : written) {
    value = Get(settings, path);
  }
  Check(settings.Save() == 1, "it can be saved");
  CXMLSettingsAPI again(folder);
  Check(again.Open(kFile, 0, 1) == CXMLSettingsAPI::kOk, "what was saved can be opened");
  for (const auto& [path, value] : written) {
    Check(Get(again, path) == value, "the file holds what the document held");
  }
  if (!written.empty()) {
    const std::string first = sarnevo::ToUtf8(written.begin()->first);
    Check(settings.Delete("%s", first.c_str()) == 1 || !Exists(settings, first),
          "what is there can be deleted");
  }
}
