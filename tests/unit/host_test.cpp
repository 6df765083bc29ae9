// The host below the level of pages: requests that share a process, and what it asks of the system.

#include "host/host.h"
#include "tags/tag_table.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace vexa {

namespace {

namespace fs = std::filesystem;

// A request whose body is a text.
class TextRequest final : public Request {
 public:
  TextRequest(char** environment, std::string body)
      : Request(environment, {}), body_(std::move(body)) {}
  int ReadBody(char* buffer, int count, int) override {
    size_t length = body_.copy(buffer, static_cast<size_t>(count));
    body_.erase(0, length);
    return static_cast<int>(length);
  }

 private:
  std::string body_;
};

class TextOutput final : public ResponseOutput {
 public:
  explicit TextOutput(std::string& text) : ResponseOutput(10), text_(text) {}
  ~TextOutput() override { Flush(); }

 protected:
  int DoWrite(const char* text, int length) override {
    text_.append(text, static_cast<size_t>(length));
    return length;
  }

 private:
  std::string& text_;
};

// A site of its own, and one process that serves it.
class HostTest : public testing::Test {
 protected:
  HostTest() { fs::create_directory(directory_ / "data"); }
  ~HostTest() override {
    unsetenv("TZ");
    fs::remove_all(directory_);
  }

  void Write(const char* name, const std::string& text) {
    std::ofstream(directory_ / name) << text;
  }

  // The whole response of a page under a configuration.
  std::string Serve(Process& process, const std::string& page, const std::string& config,
                    std::vector<std::string> environment, const std::string& body) {
    Write("page.vx", page);
    Write("vexa.conf", "vexaroot=" + directory_.string() + "\nusecookies=off\nstdmodedatadir=" +
                           directory_.string() + "/data\n" + config);
    environment.insert(environment.end(), {"PATH_INFO=/page.vx", "SERVER_NAME=localhost"});
    std::vector<char*> list;
    for (std::string& entry : environment) list.push_back(entry.data());
    list.push_back(nullptr);
    std::string response;
    TextRequest request(list.data(), body);
    TextOutput output(response);
    Host host(process, kVexaTags, request, output);
    EXPECT_EQ(1, host.Go()) << response;
    host.output().Flush();
    return response;
  }

  std::string ZoneIn(const char* zone) {
    setenv("TZ", zone, 1);
    String date = host_.currentdate();
    return std::string(date.view().substr(date.view().rfind(' ') + 1));
  }

  static fs::path MakeDirectory() {
    std::string made = (fs::temp_directory_path() / "vexa-host-XXXXXX").string();
    return mkdtemp(made.data());
  }

  fs::path directory_ = MakeDirectory();
  std::string program_ = (directory_ / "vexa").string();
  char* arguments_[2] = {program_.data(), nullptr};
  Process process_{1, arguments_};
  char* nothing_[1] = {nullptr};
  TextRequest request_{nothing_, ""};
  std::string response_;
  TextOutput output_{response_};
  Host host_{process_, kVexaTags, request_, output_};
};

TEST_F(HostTest, ASecondRequestSeesNothingOfTheFirst) {
  const std::string look =
      "[&[x]][&[field]][&[query]][&[site]][&[HTTP_X]][&[d.name]][&[EOF]][&[VxFIND_Error]]"
      "[&[vexa_language]][&[vexa_defaultlanguage]][&[dyn_time_remaining]][&[callerid]]"
      "<VxLET v='>'>[&[v]]<VxCREATE NAME=\"t\" DATABASE=\"t.dbf\" FIELDS=\"name CHAR(3)\">"
      "[<FILE READ=\"none\" NAME=\"f\">][<VxFIND VALUE=\"x\">]<VxEVAL EXPR=f()>";
  const std::string clean = "globaltimeout=0\n";
  std::string first = Serve(process_, look, clean, {}, "");
  EXPECT_EQ(0u, first.find("Content-type: text/html\r\n\r\n[][][][][][][][][][en-US][-1][][>]"));
  ASSERT_TRUE(fs::remove(directory_ / "data" / "t.dbf")) << first;

  Write("sites", "site=s\n");
  Write("data/sitevars", "EOF=own\n");
  std::string other = Serve(
      process_,
      "<VxFUNCTION NAME=\"f\">f</VxFUNCTION><VxLET x=1><VEXA DEFAULTMACROENCODING=\"entities\" "
      "FILE_ERROR=\"fatal\" STANDARDOUTPUTLEVEL=\"none\" ERROROUTPUTLEVEL=\"none\">"
      "<VxEVAL EXPR=vexa_setlanguage('de') $ vexa_setdefaultlanguage('fr')>"
      "<VxCREATE NAME=\"other\" DATABASE=\"o.dbf\" FIELDS=\"name CHAR(3)\"><VxLET d.name='abc'>"
      "<VxADD><VxFIND VALUE=\"x\"><VxLOCKFILE FILE=\"lock\"><VxWHILE EXPR=\"1\"><VxEVAL EXPR=1 +>",
      "usecookies=on\nsitevars=" + directory_.string() +
          "/sites\n<CONTENT-TYPE EXTS=\"vx\" MIMETYPE=\"text/plain\">\n",
      {"HTTP_X=x", "QUERY_STRING=query=q", "CONTENT_LENGTH=7",
       "CONTENT_TYPE=application/x-www-form-urlencoded"},
      "field=1");
  EXPECT_EQ(0u, other.find("Content-type: text/plain\r\nSet-Cookie: ")) << other;
  // The sitevars and the table, no lock.
  EXPECT_EQ(2u, fs::remove_all(directory_ / "data") - 1);
  fs::create_directory(directory_ / "data");

  // Nor whether its reader went away. A process that is to end ends with whatever it serves.
  raise(SIGPIPE);
  EXPECT_TRUE(process_.interrupted());
  EXPECT_EQ(first, Serve(process_, look, clean, {}, ""));
}

TEST_F(HostTest, ZonesAreWrittenInWholeHours) {
  EXPECT_EQ("-0000", ZoneIn("UTC0"));
  EXPECT_EQ("-0300", ZoneIn("WEST3:30"));
  EXPECT_EQ("+1300", ZoneIn("EAST-13"));
  // Half an hour east is less than no hour at all.
  EXPECT_EQ("+0000", ZoneIn("EAST-0:30"));
  // Daylight saving in force the whole year round.
  EXPECT_EQ("+0200", ZoneIn("STD-1DST,0/0,J365/25"));
}

TEST_F(HostTest, HeadersComeFromTheEnvironment) {
  char type[] = "CONTENT_TYPE=a/b", own[] = "HTTP_X_Own_Header=mine";
  char* environment[] = {type, own, nullptr};
  TextRequest request(environment, "");
  Host host(process_, kVexaTags, request, output_);
  EXPECT_EQ(host.RequestHeader("Content-Type"), "a/b");
  EXPECT_EQ(host.RequestHeader("X-Own-Header"), "mine");
  EXPECT_EQ(host.RequestHeader("X-OWN-HEADER"), "");
  EXPECT_EQ(host.RequestHeader("Content-Length"), "");
}

TEST_F(HostTest, SaltsThatCannotBeUsedGiveNothing) {
  EXPECT_EQ(host_.Crypt("key", "ab").length(), 13);
  for (const char* salt : {"", "*", "$9$x"}) EXPECT_EQ(host_.Crypt("key", salt), "") << salt;
}

TEST_F(HostTest, SessionIdsAreHexadecimalAndNeverTheSame) {
  String first = host_.MakeSessionID();
  EXPECT_EQ(first.length(), 32);
  EXPECT_EQ(first.view().find_first_not_of("0123456789ABCDEF"), std::string_view::npos);
  EXPECT_FALSE(first == host_.MakeSessionID());
}

TEST_F(HostTest, UnknownStatusCodesHaveNoText) {
  EXPECT_EQ(HTTPResultMessage(404), "Not Found");
  EXPECT_EQ(HTTPResultMessage(506), "Variant Also Varies");
  EXPECT_EQ(HTTPResultMessage(418), "");
  EXPECT_EQ(HTTPResultMessage(0), "");
}

}  // namespace

}  // namespace vexa
