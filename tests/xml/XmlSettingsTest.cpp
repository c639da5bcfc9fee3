#include "xml/CXMLSettingsAPI.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

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
