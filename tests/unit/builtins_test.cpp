// Built-in functions, where pages cannot reach: every byte of the character classes, the server's
// time zone, random numbers, and the way between times and calendar fields over all years.

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/number.h"
#include "core/string.h"
#include "expr/builtin_call.h"
#include "expr/builtin_table.h"
#include "fake_host.h"

namespace vexa {

namespace {

// A script that only lends its host and collects what is reported.
class FakeScript final : public ExpressionContext {
 public:
  Vexa& host() override { return host_; }
  bool ReportExpressionError(std::string_view) override { return false; }
  bool ReportFileError(std::string_view) override { return false; }
  bool FindFunction(Symbol name, const Callable*& function) override {
    function = FindBuiltin(name.text());
    return true;
  }
  bool CallFunction(const Callable&, std::span<ScriptValue>, ScriptValue&) override {
    return false;
  }

 private:
  FakeHost host_;
};

class BuiltinsTest : public testing::Test {
 protected:
  std::string Call(std::string_view name, std::initializer_list<std::string_view> arguments) {
    const BuiltinFunction* function = FindBuiltin(name);
    if (function == nullptr || function->parameter_count() != int(arguments.size())) {
      ADD_FAILURE() << name << " cannot be called with " << arguments.size() << " arguments";
      return "";
    }
    std::vector<ScriptValue> texts(arguments.begin(), arguments.end());
    ScriptValue result;
    EXPECT_TRUE(function->handler()(BuiltinCall(script_, texts, result)));
    return std::string(result.view());
  }
  std::string Call(std::string_view name, std::initializer_list<int64_t> numbers) {
    std::vector<std::string> texts;
    for (const int64_t number : numbers) texts.push_back(std::to_string(number));
    texts.resize(7);
    switch (numbers.size()) {
      case 1:
        return Call(name, {std::string_view(texts[0])});
      case 2:
        return Call(name, {texts[0], texts[1]});
      default:
        return Call(name, {texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], texts[6]});
    }
  }

  FakeScript script_;
};

TEST_F(BuiltinsTest, TableFindsEachRowAndNothingElse) {
  std::set<std::string> names;
  for (const BuiltinFunction& row : Builtins()) {
    std::string name(row.name());
    EXPECT_TRUE(names.insert(name).second) << name << " stands twice";
    EXPECT_EQ(FindBuiltin(name), &row);
    for (char& c : name) c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(FindBuiltin(name), &row) << name;
    EXPECT_EQ(FindBuiltin(name + "x"), nullptr);
    name.pop_back();
    if (const BuiltinFunction* shorter = FindBuiltin(name)) {
      EXPECT_EQ(shorter->name().size(), name.size()) << name;
    }
  }
  EXPECT_EQ(names.size(), 92U);
  EXPECT_EQ(FindBuiltin(""), nullptr);
  EXPECT_EQ(FindBuiltin(std::string_view("len\0", 4)), nullptr);
}

TEST_F(BuiltinsTest, ClassesAreThoseOfTheCLibraryForEveryByte) {
  const struct {
    const char* name;
    int (*is_member)(int);
  } classes[] = {{"isalpha", isalpha}, {"isupper", isupper},   {"islower", islower},
                 {"isdigit", isdigit}, {"isxdigit", isxdigit}, {"isalnum", isalnum},
                 {"isspace", isspace}, {"ispunct", ispunct},   {"isprint", isprint},
                 {"isgraph", isgraph}, {"iscntrl", iscntrl},   {"isascii", isascii}};
  for (const auto& row : classes) {
    for (int byte = 0; byte < 256; ++byte) {
      const char c = static_cast<char>(byte);
      EXPECT_EQ(Call(row.name, {std::string_view(&c, 1)}), row.is_member(byte) ? "1" : "0")
          << row.name << " of " << byte;
    }
  }
}

// Sets the server's zone for the length of a test.
class ZoneGuard {
 public:
  explicit ZoneGuard(const char* zone) {
    if (const char* former = std::getenv("TZ")) former_ = former;
    setenv("TZ", zone, 1);
  }
  ~ZoneGuard() {
    former_.empty() ? unsetenv("TZ") : setenv("TZ", former_.c_str(), 1);
    tzset();
  }

 private:
  std::string former_;
};

TEST_F(BuiltinsTest, TimezoneIsPositiveEastOfUtcAndKnowsDaylightSaving) {
  const struct {
    const char* zone;
    const char* hours;
  } rows[] = {{"UTC0", "0"},
              {"CET-1", "1"},
              {"EST5", "-5"},
              {"IST-5:30", "5"},
              {"NST3:30", "-3"},
              {"HALF-0:30", "0"},
              // Daylight saving through the whole year: an hour further east.
              {"CET-1CEST,0/0,J365/25", "2"},
              {"EST5EDT,0/0,J365/25", "-4"},
              {"NST3:30NDT,0/0,J365/25", "-2"}};
  for (const auto& row : rows) {
    const ZoneGuard guard(row.zone);
    EXPECT_EQ(Call("timezone", std::initializer_list<std::string_view>{}), row.hours) << row.zone;
    // No other function looks at the server's zone.
    EXPECT_EQ(Call("time_t_hour", {0, 3}), "3") << row.zone;
    EXPECT_EQ(Call("mktime_t", {1970, 7, 1, 0, 0, 0, 0}), "15638400") << row.zone;
  }
}

TEST_F(BuiltinsTest, TimesBeyondTheCalendarBreakDownToZeros) {
  const std::pair<const char*, const char*> zeros[] = {
      {"time_t_month", "1"},      {"time_t_year", "1900"},  {"time_t_hour", "0"},
      {"time_t_min", "0"},        {"time_t_sec", "0"},      {"time_t_dayofweek", "1"},
      {"time_t_dayofmonth", "0"}, {"time_t_dayofyear", "1"}};
  for (const auto& [name, text] : zeros) {
    EXPECT_EQ(Call(name, {"9223372036854775807", "0"}), text) << name;
    EXPECT_EQ(Call(name, {"9223372036854775807", "1"}), text) << name;
    EXPECT_EQ(Call(name, {"-99999999999999999999", "-2147483648"}), text) << name;
  }
  // The last second of the last year that the C library's calendar holds.
  EXPECT_EQ(Call("time_t_year", {"67768036191676799", "0"}), "2147485547");
  EXPECT_EQ(Call("time_t_year", {"67768036191676800", "0"}), "1900");
}

TEST_F(BuiltinsTest, MakingATimeIsTheInverseOfBreakingItDown) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  // About 30,000 years on both sides of 1970.
  std::uniform_int_distribution<int64_t> times(-1'000'000'000'000, 1'000'000'000'000);
  std::uniform_int_distribution<int64_t> zones(-14, 14);
  for (int i = 0; i < 2000; ++i) {
    const int64_t time = times(random);
    const int64_t zone = zones(random);
    const auto field = [&](const char* name) { return std::stoll(Call(name, {time, zone})); };
    EXPECT_EQ(
        Call("mktime_t", {field("time_t_year"), field("time_t_month"), field("time_t_dayofmonth"),
                          field("time_t_hour"), field("time_t_min"), field("time_t_sec"), zone}),
        std::to_string(time));
  }
}

TEST_F(BuiltinsTest, FieldsOutOfRangeCarryOverAsInTimegm) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  std::uniform_int_distribution<int> fields(-100'000, 100'000);
  for (int i = 0; i < 2000; ++i) {
    std::tm tm{};
    for (int* field : {&tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &tm.tm_sec})
      *field = fields(random);
    std::tm copy = tm;
    EXPECT_EQ(Call("mktime_t", {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                tm.tm_sec, 0}),
              std::to_string(timegm(&copy)));
  }
  // The largest and the smallest fields there are must not overflow.
  EXPECT_EQ(Call("mktime_t", {INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MIN}),
            "73616448195750067");
  EXPECT_EQ(Call("mktime_t", {INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MAX}),
            "-73616572570018928");
}

TEST_F(BuiltinsTest, NulBytesAreOrdinaryCharacters) {
  const std::string_view text("a\0b c", 5);
  const std::string_view nul = text.substr(1, 1);
  EXPECT_EQ(Call("len", {text}), "5");
  EXPECT_EQ(Call("substring", {text, "2", "2"}), text.substr(1, 2));
  EXPECT_EQ(Call("gettoken", {text, nul, "2"}), "b c");
  EXPECT_EQ(Call("glosub", {text, nul, "-"}), "a-b c");
  EXPECT_EQ(Call("padl", {"x", "3", nul}), std::string("\0\0x", 3));
}

TEST_F(BuiltinsTest, RandomStaysInRangeAndReachesBothEnds) {
  (void)DrawNumber();  // The first one seeds.
  std::srand(1);
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) seen.insert(Call("random", {3}));
  EXPECT_EQ(seen, (std::set<std::string>{"0", "1", "2", "3"}));
  // The generator's own numbers pass unchanged when the maximum holds them all.
  std::srand(7);
  const int first = std::rand();
  for (const int64_t maximum : {int64_t{INT_MAX}, int64_t{INT_MAX} * 4}) {
    std::srand(7);
    EXPECT_EQ(Call("random", {maximum}), std::to_string(first));
  }
  EXPECT_EQ(Call("random", {0}), "0");
  EXPECT_EQ(Call("random", {INT_MIN}), "0");
}

}  // namespace

}  // namespace vexa
