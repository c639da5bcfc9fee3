#include "xml/CXMLSettingsAPI.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <functional>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include "support/TempFolder.h"
#include "xml/CDinaFileBase.h"
#include "xml/Utf8.h"

namespace {

using testing::ElementsAre;

constexpr char kHead[] = "<?xml version='1.0' encoding='utf-8'?>";

struct Settings : TempFolder, CXMLSettingsAPI {
  Settings() : CXMLSettingsAPI(Path()) {}
  std::string File() const { return Read("s.xml"); }
};

TEST(Utf8, IsReadStrictlyAndWrittenBack) {
  using sarnevo::FromUtf8;
  const struct {
    std::string_view utf8;
    std::wstring wide;
    bool xml;
  } kTexts[] = {
      {"A\u00df\u20ac\U0001F3A5", L"A\u00df\u20ac\U0001F3A5", true},
      {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xF0\x90\x80\x80", L"\x7F\x80\u07FF\u0800\U00010000", true},
      {"\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF", L"\uD7FF\uE000\U0010FFFF", true},
      {" \t\n\r", L" \t\n\r", true},
      {"\xEF\xBF\xBE", L"\uFFFE", false},
      {std::string_view("\0", 1), std::wstring(1, L'\0'), false},
  };
  for (const auto& text : kTexts) {
    EXPECT_EQ(FromUtf8(text.utf8), text.wide) << text.utf8;
    EXPECT_EQ(sarnevo::ToUtf8(text.wide), text.utf8);
    EXPECT_EQ(CXMLSettingsAPI::CanHold(text.wide), text.xml) << text.utf8;
  }
  // Overlong forms of two, three and four bytes, a surrogate, what is after all planes, and what is cut.
  for (const char* const bad : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
                                "\xF4\x90\x80\x80", "\xF0\x9F\x8E", "\xE2\x82 "}) {
    EXPECT_EQ(FromUtf8(bad), std::nullopt) << bad;
  }
  const std::wstring lone{L'a', static_cast<wchar_t>(0xD800), L'b'};
  EXPECT_FALSE(CXMLSettingsAPI::CanHold(lone));
  EXPECT_EQ(sarnevo::ToUtf8(lone), "a\uFFFDb");
}

TEST(XmlSettings, ElementsAreMadeOnTheWayAndLaidOutForReaders) {
  Settings settings;
  ASSERT_EQ(settings.CreateNewFile("s.xml", "Root", 1), 1);
  EXPECT_EQ(settings.File(), std::string(kHead) + "<Root/>");
  ASSERT_EQ(settings.Open("s.xml", 1, 1), 0);

  const struct {
    const char* step;
    std::function<int()> run;
    const char* body;
  } kSteps[] = {
      {"a path whose elements are all missing", [&] { return settings.SetString(L"1", L"Root/A/B"); },
       "<Root><A>\n\t\t<B value=\"1\">\n\t\t</B>\n\t</A>\n</Root>"},
      {"the same again changes the attribute only",
       [&] { return settings.SetString(L"\u00e4\U0001F3A5 \t2", L"Root/%ls/B", L"A"); },
       "<Root><A>\n\t\t<B value=\"\u00e4\U0001F3A5 &#9;2\">\n\t\t</B>\n\t</A>\n</Root>"},
      {"an element goes with all that it holds, the white space around it stays",
       [&] { return settings.Delete("Root/%s", "A"); }, "<Root>\n</Root>"},
      {"conditions become attributes", [&] { return settings.CreatePath(L"Root/I[@id=\"7\"][@k=\"x y\"]"); },
       "<Root>\n<I id=\"7\" k=\"x y\">\n\t</I>\n</Root>"},
      {"an empty value, of an element that is there", [&] { return settings.SetString(L"", L"Root/I"); },
       "<Root>\n<I id=\"7\" k=\"x y\" value=\"\">\n\t</I>\n</Root>"},
  };
  for (const auto& step : kSteps) {
    EXPECT_EQ(step.run(), 1);
    EXPECT_EQ(settings.File(), kHead + std::string(step.body)) << step.step;
  }
  EXPECT_EQ(settings.Delete("Root/A"), 0) << "what isn't there can't go";
  for (const wchar_t* const path : {L"Other", L"Root/1a", L"Root/a:b"}) {
    EXPECT_EQ(settings.CreatePath(path), 0) << "beside the root element, no name, a prefix";
  }
  for (const std::wstring& value : {std::wstring(L"\x01"), std::wstring((1 << 20) + 1, L'x')}) {
    EXPECT_EQ(settings.SetString(value.c_str(), L"Root/New"), 0)
        << "XML can't carry it, or it can't be read again";
  }
  EXPECT_EQ(settings.File(), kHead + std::string(std::end(kSteps)[-1].body))
      << "what is refused changes nothing";
  EXPECT_EQ(settings.GetString(L"Root/I"), L"");
  EXPECT_EQ(settings.GetString(L"Root/I[@k=\"no\"]"), L"");
  EXPECT_EQ(settings.Exists("Root/%s[@k='x y']", "I"), 1);
}

TEST(XmlSettings, PathsEndAfter1023Characters) {
  Settings settings;
  ASSERT_EQ(settings.CreateNewFile("s.xml", "Root", 1), 1);
  ASSERT_EQ(settings.Open("s.xml", 0, 1), 0);
  for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 5000U, 100'000U}) {
    SCOPED_TRACE(length);
    const std::wstring name(length - 5, L'n');
    ASSERT_EQ(settings.SetString(std::to_wstring(length).c_str(), L"Root/%ls", name.c_str()), 1);
    // A longer path is the same as the one that ends there.
    EXPECT_EQ(settings.GetString(L"Root/%ls", name.substr(0, 1018).c_str()), std::to_wstring(length));
    EXPECT_EQ(settings.Exists("Root/%s", std::string(length - 5, 'n').c_str()), 1);
  }
  std::wstring deep = L"Root";
  while (deep.size() < 1000) {
    deep += L"/d";
  }
  EXPECT_EQ(settings.CreatePath(L"%ls", deep.c_str()), 0) << "deeper than a strict parser reads";
  EXPECT_EQ(settings.Save(), 1);
  Settings again;
  again.Write("s.xml", settings.File());
  EXPECT_EQ(again.Open("s.xml", 0, 1), 0) << "what is written can be read";
}

TEST(XmlSettings, OpenCountsItsUsersAndClosedMeansFailure) {
  Settings settings;
  settings.Write("s.xml", "<R><A value=\"1\"/></R>");
  settings.Write("empty.xml", "");
  EXPECT_EQ(settings.Close(), 0U);
  EXPECT_EQ(settings.Open("none.xml", 0, 1), static_cast<int>(0x80004005));
  EXPECT_EQ(settings.Open("empty.xml", 0, 1), static_cast<int>(0x80004005));
  EXPECT_EQ(settings.Open(nullptr, 0, 1), static_cast<int>(0x80004005));
  for (const bool open : {false, true, false}) {
    if (open) {
      ASSERT_EQ(settings.Open("s.xml", 0, 1), 0);
      ASSERT_EQ(settings.Open("none.xml", 1, 0), 0) << "one more user of the open file";
      EXPECT_EQ(settings.Close(), 1U);
    }
    EXPECT_EQ(settings.GetString(L"R/A"), open ? L"1" : L"");
    for (const int done : {settings.Exists("R/A"), settings.CreatePath(L"R/A"),
                           settings.SetString(L"2", L"R/B"), settings.Delete("R/B"), settings.Save()}) {
      EXPECT_EQ(done, open);
    }
    EXPECT_EQ(settings.CreateNewFile("new.xml", "R", 1), !open) << "not while a document is open";
    EXPECT_EQ(settings.Close(), 0U);
  }
}

TEST(XmlSettings, OpenRemovesOldLeftoversOfItsOwnAlone) {
  Settings folder;
  for (const auto& [name, age] : std::initializer_list<std::pair<const char*, std::time_t>>{
           {".kolvex-1-0.tmp", 3700}, {".kolvex-1-1.tmp", 3500}, {".kolvex-1-2", 3700}, {"other.tmp", 3700}}) {
    folder.Write(name, "x");
    const timespec when{std::time(nullptr) - age, 0};
    const timespec times[] = {when, when};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
  }
  folder.Write("f", "<R/>");
  EXPECT_EQ(folder.Open("f", 0, 1), 0);
  EXPECT_THAT(folder.List(), ElementsAre(".kolvex-1-1.tmp", ".kolvex-1-2", "f", "other.tmp"));
}

TEST(XmlSettings, OnlyWhatIsPlainlyXmlIsOpened) {
  const std::string bomb =
      "<!DOCTYPE R [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]><R><A "
      "value=\"&b;\"/></R>";
  std::string many = "<R>";
  for (int i = 0; i < 100'000; ++i) {
    many += "<E" + std::to_string(i) + "><A value=\"1\"/></E" + std::to_string(i) + ">\n";
  }
  const auto nested = [](int depth) {
    std::string text = "<R><A value=\"1\"/>";
    for (int i = 2; i < 2 * depth; ++i) {
      text += i <= depth ? "<d>" : "</d>";
    }
    return text + "</R>";
  };
  const struct {
    const char* name;
    std::string content;
    bool opens;
  } kFiles[] = {
      {"no declaration", "<R><A value=\"1\"/></R>", true},
      {"byte order mark", "\xEF\xBB\xBF<R><A value=\"1\"/></R>", true},
      {"another encoding", "<?xml version='1.0' encoding='iso-8859-1'?><R x='\xE4'><A value=\"1\"/></R>", true},
      {"100,000 entries", many + "<A value=\"1\"/></R>", true},
      {"deep nesting", nested(250), true},
      {"comments and instructions", "<!-- c --><?p i?><R><!-- c --><A value=\"1\"/></R><!-- e -->", true},
      {"nesting too deep", nested(300), false},
      {"UTF-16", std::string("\xFF\xFE<\0R\0/\0>\0", 10), false},
      {"cut in an element", "<R><A value=\"1\"/>", false},
      {"zero byte past the end", std::string("<R/>\0", 5), false},
      {"internal subset", "<!DOCTYPE R [<!ELEMENT R ANY>]><R/>", false},
      {"entity bomb", bomb, false},
      {"external entity", "<!DOCTYPE R [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><R>&x;</R>", false},
      {"control character", "<R a='\x01'/>", false},
      {"a prefix of nothing", "<R><a:A/></R>", false},
  };
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    Settings settings;
    settings.Write("s.xml", file.content);
    EXPECT_EQ(settings.Open("s.xml", 0, 1) == 0, file.opens);
    if (file.opens) {
      EXPECT_EQ(settings.Close(), 0u);
      EXPECT_EQ(settings.CreateNewFile("s.xml", "New", 1, false), 0) << "a good file stays";
      EXPECT_EQ(settings.Open("s.xml", 0, 1), 0);
      EXPECT_EQ(settings.GetString(L"R/A"), L"1");
      EXPECT_EQ(settings.Save(), 1);
      EXPECT_THAT(settings.File(), testing::StartsWith(kHead));
      EXPECT_THAT(settings.List(), ElementsAre("s.xml"));
      continue;
    }
    EXPECT_EQ(settings.CreateNewFile("s.xml", "New", 1), 1);
    EXPECT_EQ(settings.File(), std::string(kHead) + "<New/>");
    EXPECT_EQ(settings.Read("s.xml.bad"), file.content) << "what an operator had is kept";
  }
}

TEST(XmlSettings, AFileOfMoreThan64MiBIsRefused) {
  for (const bool fits : {true, false}) {
    Settings settings;
    std::string content = "<R/>";
    for (int mebibyte = 1; mebibyte <= 64; ++mebibyte) {
      content += "<!--" + std::string((mebibyte << 20) - 7 - content.size(), 'x') + "-->";
    }
    settings.Write("s.xml", content + (fits ? "" : " "));
    EXPECT_EQ(settings.Open("s.xml", 0, 1) == 0, fits);
  }
}

TEST(XmlSettings, NamesAndFilesThatCantBeUsedAreRefused) {
  Settings settings;
  std::filesystem::create_directory(settings / "folder.xml");
  ASSERT_EQ(mkfifo((settings / "pipe.xml").c_str(), 0600), 0);
  for (const std::string name :
       {"", ".", "..", "/tmp/s.xml", "../s.xml", "a/b.xml", "a\\b.xml", "folder.xml", "pipe.xml"}) {
    SCOPED_TRACE(name);
    EXPECT_LT(settings.Open(name.c_str(), 0, 1), 0);
    EXPECT_EQ(settings.CreateNewFile(name.c_str(), "R", 1), 0);
  }
  EXPECT_EQ(settings.CreateNewFile(std::string(300, 'm').c_str(), "R", 1), 0);
  EXPECT_EQ(settings.CreateNewFile("s.xml", "not a name", 1), 0);
  EXPECT_THAT(settings.List(), ElementsAre("folder.xml", "pipe.xml"));

  CDinaFileBase file;
  EXPECT_FALSE(file.Open((settings / "s.xml").c_str(), 1, 1));
  EXPECT_TRUE(file.Open((settings / "s.xml").c_str(), 0, 0)) << "made when it needn't exist";
}

TEST(XmlSettings, OfEqualNamesTheFirstThatLeadsOnIsTaken) {
  Settings settings;
  settings.Write("s.xml",
                 "<R><A/><A><B/><B value='2'/></A><A><B value='3'/></A><x:A xmlns:x='u' value='4'/></R>");
  ASSERT_EQ(settings.Open("s.xml", 0, 1), 0);
  EXPECT_EQ(settings.GetString(L"R/A"), L"");
  EXPECT_EQ(settings.GetString(L"R/A/B"), L"");
  EXPECT_EQ(settings.GetString(L"R/A/B[@value='3']"), L"3");
  EXPECT_EQ(settings.Delete("R/A/B"), 1);
  EXPECT_EQ(settings.GetString(L"/R/A/B"), L"2");
}

int hostHandlerCalls = 0;
void CountCall(void*, const char*, ...) { ++hostHandlerCalls; }

// The host may use the same library for its own documents.
TEST(XmlSettings, TheHostsXmlLibraryIsLeftAsItIs) {
  xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) { ++hostHandlerCalls; });
  xmlSetGenericErrorFunc(nullptr, CountCall);
  xmlFreeDoc(xmlReadMemory("<mine", 5, "host.xml", nullptr, 0));
  const int calls = hostHandlerCalls;
  const int blanks = xmlKeepBlanksDefault(0);

  Settings settings;
  settings.Write("s.xml", "<R><a:A/></R");
  EXPECT_LT(settings.Open("s.xml", 0, 1), 0);
  settings.Write("s.xml", "<R> <A/> </R>");
  EXPECT_EQ(settings.Open("s.xml", 0, 1), 0);
  EXPECT_EQ(settings.Save(), 1);
  EXPECT_EQ(settings.File(), std::string(kHead) + "<R> <A/> </R>");

  EXPECT_EQ(hostHandlerCalls, calls);
  ASSERT_NE(xmlGetLastError(), nullptr);
  EXPECT_STREQ(xmlGetLastError()->file, "host.xml");
  EXPECT_EQ(xmlKeepBlanksDefault(blanks), 0);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  xmlSetGenericErrorFunc(nullptr, nullptr);
}

}  // namespace
