// The host below the level of pages: requests that share a process, and what it asks of the system.

#include "host/host.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "file_fixture.h"

namespace vexa {

namespace {

// A site of its own, and one process that serves it.
class HostTest : public FileFixture {
 protected:
  // The whole response of a page under a configuration.
  std::string Serve(const std::string& page, const std::string& config,
                    std::vector<std::string> environment = {}, const std::string& body = "") {
    Make("page.vx", page);
    Make("vexa.conf", "vexaroot=" + directory() +
                          "\nusecookies=off\nstdmodedatadir=" + directory() + "\n" + config);
    environment.insert(environment.end(), {"PATH_INFO=/page.vx", "SERVER_NAME=localhost"});
    std::vector<char*> list;
    for (std::string& entry : environment) list.push_back(entry.data());
    list.push_back(nullptr);
    TextRequest request(list.data(), body);
    TextOutput output;
    {
      Host served(process_, kVexaTags, request, output);
      EXPECT_EQ(1, served.Go());
    }
    return output.text;
  }

  std::string program_ = directory() + "/vexa";
  char* arguments_[2] = {program_.data(), nullptr};
  Process process_{1, arguments_};
};

TEST_F(HostTest, ASecondRequestSeesNothingOfTheFirst) {
  const std::string look =
      "[&[x]][&[field]][&[query]][&[site]][&[HTTP_X]][&[d.name]][&[EOF]][&[VxFIND_Error]]"
      "[&[vexa_language]][&[vexa_defaultlanguage]][&[dyn_time_remaining]][&[callerid]]"
      "<VxLET v='>'>[&[v]]<VxCREATE NAME=\"t\" DATABASE=\"t.dbf\" FIELDS=\"name CHAR(3)\">"
      "[<FILE READ=\"none\" NAME=\"f\">][<VxFIND VALUE=\"x\">]<VxEVAL EXPR=f()>";
  const std::string clean = "globaltimeout=0\n";
  std::string first = Serve(look, clean);
  EXPECT_EQ(0u, first.find("Content-type: text/html\r\n\r\n[][][][][][][][][][en-US][-1][][>]"));
  ASSERT_EQ(0, unlink(Path("t.dbf").c_str())) << first;

  Make("sites", "site=s\nEOF=own\n");
  std::string other = Serve(
      "<VxFUNCTION NAME=\"f\">f</VxFUNCTION><VxLET x=1><VEXA DEFAULTMACROENCODING=\"entities\" "
      "FILE_ERROR=\"fatal\" STANDARDOUTPUTLEVEL=\"none\" ERROROUTPUTLEVEL=\"none\">"
      "<VxEVAL EXPR=vexa_setlanguage('de') $ vexa_setdefaultlanguage('fr')>"
      "<VxCREATE NAME=\"other\" DATABASE=\"o.dbf\" FIELDS=\"name CHAR(3)\"><VxLET d.name='abc'>"
      "<VxADD><VxFIND VALUE=\"x\"><VxLOCKFILE FILE=\"lock\"><VxWHILE EXPR=\"1\"><VxEVAL EXPR=1 +>",
      "usecookies=on\nsitevars=" + directory() +
          "/sites\n<CONTENT-TYPE EXTS=\"vx\" MIMETYPE=\"text/plain\">\n",
      {"HTTP_X=x", "QUERY_STRING=query=q", "CONTENT_LENGTH=7",
       "CONTENT_TYPE=application/x-www-form-urlencoded"},
      "field=1");
  EXPECT_EQ(0u, other.find("Content-type: text/plain\r\nSet-Cookie: ")) << other;
  EXPECT_TRUE(files.Exists(Path("o.dbf")));
  EXPECT_FALSE(files.Exists(Path("lock")) || files.Exists(Path("lock.lck")));
  EXPECT_EQ(0, Descriptors());

  // Nor whether its reader went away. A process that is to end ends with whatever it serves.
  process_.TakeOverSignals();
  raise(SIGPIPE);
  EXPECT_TRUE(process_.interrupted());
  EXPECT_EQ(first, Serve(look, clean));
}

TEST(SystemServicesTest, ZonesAreWrittenInWholeHours) {
  FakeHost host;
  const std::pair<const char*, const char*> kZones[] = {
      {"UTC0", "-0000"},
      {"WEST3:30", "-0300"},
      {"EAST-13", "+1300"},
      {"EAST-0:30", "+0000"},             // half an hour east is less than no hour at all
      {"STD-1DST,0/0,J365/25", "+0200"},  // daylight saving in force the whole year round
  };
  for (const auto& [zone, written] : kZones) {
    setenv("TZ", zone, 1);
    EXPECT_TRUE(host.currentdate().view().ends_with(written)) << zone;
  }
  unsetenv("TZ");
}

TEST(RequestTest, HeadersComeFromTheEnvironment) {
  char type[] = "CONTENT_TYPE=a/b", own[] = "HTTP_X_Own_Header=mine";
  char* environment[] = {type, own, nullptr};
  TextRequest request(environment, "");
  EXPECT_EQ(request.Header("Content-Type"), "a/b");
  EXPECT_EQ(request.Header("X-Own-Header"), "mine");
  EXPECT_EQ(request.Header("X-OWN-HEADER"), "");
  EXPECT_EQ(request.Header("Content-Length"), "");
}

TEST(AnswerTest, UnknownStatusCodesHaveNoText) {
  EXPECT_EQ(HTTPResultMessage(404), "Not Found");
  EXPECT_EQ(HTTPResultMessage(506), "Variant Also Varies");
  EXPECT_EQ(HTTPResultMessage(418), "");
}

}  // namespace

}  // namespace vexa
