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

namespace {

using testing::ElementsAre;

constexpr char kHead[] = "<?xml version='1.0' encoding='utf-8'?>";

struct Settings : TempFolder, CXMLSettingsAPI {
  Settings() : CXMLSettingsAPI(Path()) {}
  std::string File() const { return Read("s.xml"); }
};

TEST(XmlSettings, ElementsAreMadeOnTheWayAndLaidOutForReaders) {
  Settings settings;
  ASSERT_EQ(settings.CreateNewFile("s.xml", "Root", 1), 1);
  EXPECT_EQ(settings.File(), std::string(kHead) + "<Root/>");
  ASSERT_EQ(settings.Open("s.xml", 1, 1), 0);

  const struct {
    const char* step;
    std::function<int()> run;
    int result;
    const char* body;
  } kSteps[] = {
      {"a path whose elements are all missing", [&] { return settings.SetString(L"1", L"Root/A/B"); }, 1,
       "<Root><A>\n\t\t<B value=\"1\">\n\t\t</B>\n\t</A>\n</Root>"},
      {"the same again changes the attribute only",
       [&] { return settings.SetString(L"\u00e4\U0001F3A5 \t2", L"Root/%ls/B", L"A"); }, 1,
       "<Root><A>\n\t\t<B value=\"\u00e4\U0001F3A5 &#9;2\">\n\t\t</B>\n\t</A>\n</Root>"},
      {"an element that is there is left as it is", [&] { return settings.CreatePath(L"Root/A/B"); }, 1,
       nullptr},
      {"an element goes with all that it holds, the white space around it stays",
       [&] { return settings.Delete("Root/%s", "A"); }, 1, "<Root>\n</Root>"},
      {"conditions become attributes", [&] { return settings.CreatePath(L"Root/I[@id=\"7\"][@k=\"x y\"]"); }, 1,
       "<Root>\n<I id=\"7\" k=\"x y\">\n\t</I>\n</Root>"},
      {"an empty value", [&] { return settings.SetString(L"", L"Root/I"); }, 1,
       "<Root>\n<I id=\"7\" k=\"x y\" value=\"\">\n\t</I>\n</Root>"},
      {"what isn't there can't go", [&] { return settings.Delete("Root/A"); }, 0, nullptr},
      {"nor be made beside the root element", [&] { return settings.CreatePath(L"Other"); }, 0, nullptr},
      {"nor with a name that XML doesn't know", [&] { return settings.CreatePath(L"Root/1a"); }, 0, nullptr},
      {"nor with a prefix", [&] { return settings.CreatePath(L"Root/a:b"); }, 0, nullptr},
      {"nor hold what XML can't carry", [&] { return settings.SetString(L"\x01", L"Root/New"); }, 0, nullptr},
      {"or what is too long to be read again",
       [&] { return settings.SetString(std::wstring((1 << 20) + 1, L'x').c_str(), L"Root/New"); }, 0, nullptr},
  };
  std::string expected;
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.step);
    EXPECT_EQ(step.run(), step.result);
    expected = step.body != nullptr ? kHead + std::string(step.body) : expected;
    EXPECT_EQ(settings.File(), expected);
  }
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
    EXPECT_EQ(settings.Exists("R/A"), open);
    EXPECT_EQ(settings.CreatePath(L"R/A"), open);
    EXPECT_EQ(settings.SetString(L"2", L"R/B"), open);
    EXPECT_EQ(settings.Delete("R/B"), open);
    EXPECT_EQ(settings.Save(), open);
    EXPECT_EQ(settings.CreateNewFile("new.xml", "R", 1), !open) << "not while a document is open";
    if (open) {
      EXPECT_EQ(settings.Close(), 0U);
    }
  }
}

TEST(XmlSettings, OpenRemovesOldLeftoversOfItsOwnAlone) {
  Settings folder;
  const std::time_t hourAgo = std::time(nullptr) - 3600;
  const auto leave = [&](const char* name, std::time_t when) {
    folder.Write(name, "x");
    const timespec times[] = {{when, 0}, {when, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
  };
  leave(".kolvex-1-0.tmp", hourAgo - 100);
  leave(".kolvex-1-1.tmp", hourAgo + 100);
  leave(".kolvex-1-2", hourAgo - 100);
  leave("other.tmp", hourAgo - 100);
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
    std::string open, close;
    for (int i = 1; i < depth; ++i) {
      open += "<d>";
      close += "</d>";
    }
    return "<R><A value=\"1\"/>" + open + close + "</R>";
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
      {"zero byte behind the end", std::string("<R/>\0", 5), false},
      {"internal subset", "<!DOCTYPE R [<!ELEMENT R ANY>]><R/>", false},
      {"entity bomb", bomb, false},
      {"external entity", "<!DOCTYPE R [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><R>&x;</R>", false},
      {"control character", "<R a='\x01'/>", false},
  };
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    Settings settings;
    settings.Write("s.xml", file.content);
    EXPECT_EQ(settings.Open("s.xml", 0, 1) == 0, file.opens);
    if (file.opens) {
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
  const std::string mine = xmlGetLastError()->message;
  const int blanks = xmlKeepBlanksDefault(0);
  hostHandlerCalls = 0;

  Settings settings;
  settings.Write("s.xml", "<R><a:A/></R");
  EXPECT_LT(settings.Open("s.xml", 0, 1), 0);
  settings.Write("s.xml", "<R> <A/> </R>");
  EXPECT_EQ(settings.Open("s.xml", 0, 1), 0);
  EXPECT_EQ(settings.Save(), 1);
  EXPECT_EQ(settings.File(), std::string(kHead) + "<R> <A/> </R>");

  EXPECT_EQ(hostHandlerCalls, 0);
  ASSERT_NE(xmlGetLastError(), nullptr);
  EXPECT_EQ(xmlGetLastError()->message, mine);
  EXPECT_STREQ(xmlGetLastError()->file, "host.xml");
  EXPECT_EQ(xmlKeepBlanksDefault(blanks), 0);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  xmlSetGenericErrorFunc(nullptr, nullptr);
}

}  // namespace
