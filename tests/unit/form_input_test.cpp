// Multipart bodies below the level of pages: delimiters at every edge of the window, and the
// parameters of headers.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "request/body_reader.h"
#include "request/cookie.h"
#include "request/part_header.h"

namespace vexa {

namespace {

// A body that arrives in pieces of random length.
class Pieces final : public ContentSource {
 public:
  Pieces(std::string body, unsigned seed) : body_(std::move(body)), chance_(seed) {}
  int ReadContent(char* buffer, int count) override {
    if (body_.empty()) return 0;
    size_t length = body_.copy(buffer, 1 + chance_() % static_cast<size_t>(count));
    body_.erase(0, length);
    return static_cast<int>(length);
  }

 private:
  std::string body_;
  std::minstd_rand chance_;
};

class TextSink final : public PartSink {
 public:
  bool Take(std::string_view data) override {
    text += data;
    return true;
  }
  std::string text;
};

// Data full of beginnings of delimiters, but without one.
std::string TrickyData(std::minstd_rand& chance) {
  static const std::vector<std::string> kPieces = {
      "\r",        "\n",          "\r\n",         "\r\n-", "\r\n--",         "--edgeY",
      "\r\n--edg", "\r\n--edgeX", "\r\n--edge-x", "x",     "\r\n--edge \t!", "\r\n--edge\r\r\n"};
  std::string data;
  for (auto i = chance() % 12; i > 0; --i) data += kPieces[chance() % kPieces.size()];
  return data + ".";
}

TEST(BodyReaderTest, DataComesBackWhereverThePiecesEnd) {
  const unsigned first_seed = std::random_device()();
  for (unsigned seed = first_seed; seed != first_seed + 2000; ++seed) {
    SCOPED_TRACE(seed);
    std::minstd_rand chance(seed);
    std::vector<std::string> parts(1 + chance() % 4);
    std::string body = "--edge\r\n";
    for (std::string& part : parts) {
      part = TrickyData(chance);
      bool last = &part == &parts.back();
      body += "line\r\n" + part + "\r\n--edge" + (last ? "--" : chance() % 2 ? " \t\r\n" : "\r\n");
    }
    Pieces pieces(body, seed);
    BodyReader reader(pieces, static_cast<int64_t>(body.size()), "edge",
                      static_cast<int>(1 + chance() % 40));
    auto end = reader.ReadFirstLine();
    for (const std::string& part : parts) {
      ASSERT_EQ(BodyReader::DataEnd::Part, end);
      String line;
      ASSERT_EQ(BodyReader::LineEnd::Line, reader.ReadLine(line, 5));
      EXPECT_EQ(line, "line");
      TextSink sink;
      end = reader.ReadData(sink);
      ASSERT_EQ(part, sink.text);
    }
    ASSERT_EQ(BodyReader::DataEnd::LastPart, end);
  }
}

TEST(PartHeaderTest, ParametersOfHeaders) {
  // What the parameter "b" of each header is; null: there is none.
  const std::pair<const char*, const char*> kCases[] = {
      {"t;B = x y ; c=d", "x y"},
      {"t; a=\"; b=no\"; b=yes", "yes"},
      {"t; a=\"\\\"; b=no\"; b=yes", "yes"},
      {"t; b=\"C:\\d\\\"q\\\"\"", "C:\\d\"q\""},
      {"t; b=\"open", "open"},
      {"t; b=\"", ""},
      {"t; b=", ""},
      {"t; b", nullptr},
      {"t; ab=x; c", nullptr},
      {"b=x", nullptr},
      {";;;=;b=1", "1"},
  };
  for (const auto& [header, expected] : kCases) {
    String value;
    EXPECT_EQ(expected != nullptr, HeaderParameter(header, "b", value)) << header;
    EXPECT_EQ(value, expected == nullptr ? "" : expected) << header;
  }
}

TEST(CookieTest, TheCookieLastsAYear) {
  EXPECT_EQ(IdentifyingCookie("id", 951782400),  // 29 February 2000
            "zdxcallerid=id; expires=Wed, 28-Feb-2001 00:00:00 GMT; path=/");
}

}  // namespace

}  // namespace vexa
