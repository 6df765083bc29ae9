// Index files: their bytes, messages and searches, and what damage comes to.

#include <memory>
#include <random>

#include "index_model.h"
#include "table_fixture.h"
#include "xbase/index/index_builder.h"

namespace vexa {

namespace {

using namespace std::string_literals;

class IndexFile : public TableFixture {
 protected:
  // An empty index at people.vxx, small enough that everything happens to it soon.
  int CreateSmall(ZDXIndexFile& index, uint32_t flags = 0) {
    return index.Create("people.vxx", "people.vxx", {"NAME", flags, {3, 435, 20}});
  }
  static int CreateStandard(ZDXIndexFile& index, uint32_t flags = 0) {
    return index.Create("people.vxx", "people.vxx", {"NAME", flags, {}});
  }
  static int Open(ZDXIndexFile& index) {
    return index.Open("people.vxx", "people.vxx", OpenRead | OpenWrite);
  }
  static void InsertAll(ZDXIndexFile& index, const std::vector<std::string>& keys) {
    uint32_t record = 0;
    for (const std::string& key : keys) ASSERT_EQ(index.Insert(++record, key), 1);
  }
  // The record found, and the key there.
  static std::string Found(ZDXIndexFile& index, std::string_view key, int exact) {
    uint32_t record;
    if (index._Find(key, exact, record) == 0) return std::string(index.error().view());
    return std::to_string(record) + " " + std::string(index.CursorKey().view());
  }
};

// --- Bytes -----------------------------------------------------------------------------------

TEST_F(IndexFile, CreateWritesTheDocumentedBytes) {
  ZDXIndexFile index(files);
  ASSERT_EQ(index.Create("people.vxx", "people", {"UPPER(name)", 5, {}}), 1);
  const std::string& bytes = files["people.vxx"];
  EXPECT_EQ(bytes.size(), 2048u);
  EXPECT_EQ(bytes.substr(0, 27),
            "ZDXI\x03\0\0\0\0\x02\0\0\0\x01\0\0\0\x08\0\0\x04\x6C\0\x05\0\0\0"s);
  EXPECT_EQ(bytes.substr(27, 400), "UPPER(name)" + std::string(389, '\0'));
  EXPECT_EQ(bytes.substr(1024), std::string(1024, '\0'));

  ASSERT_EQ(index.Insert(7, "abc"), 1);
  EXPECT_EQ(bytes.substr(1024, 16), "\x01\0\0\0\0\0\0\0\x07\0\0\0abc\0"s);
  EXPECT_EQ(Get32(bytes.data() + 5), 1u);
}

TEST_F(IndexFile, TheNinthKeySplitsTheRoot) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateStandard(index), 1);
  InsertAll(index, {"1", "2", "3", "4", "5", "6", "7", "8"});
  EXPECT_EQ(index.numpages(), 2u);
  ASSERT_EQ(index.Insert(9, "9"), 1);
  EXPECT_EQ(index.numpages(), 4u);
  EXPECT_EQ(index.startingpage(), 3u);
  const std::string& bytes = files["people.vxx"];
  const auto page = [&](size_t number, size_t entry) {
    return bytes.data() + number * 1024 + 4 + entry * 108;
  };
  EXPECT_EQ(bytes.size(), 4096u);
  EXPECT_EQ(Get32(bytes.data() + 3 * 1024), 1u);
  EXPECT_EQ(Get32(page(3, 0)), 1u);
  EXPECT_EQ(std::string(page(3, 0) + 8), "5");
  EXPECT_EQ(Get32(page(3, 1)), 2u);
  EXPECT_EQ(Get32(bytes.data() + 1024), 4u);
  EXPECT_EQ(std::string(page(1, 0) + 8), "1");
  EXPECT_EQ(Get32(bytes.data() + 2 * 1024), 4u);
  EXPECT_EQ(std::string(page(2, 0) + 8), "6");
}

TEST_F(IndexFile, AnEvenNumberOfKeysSplitsBelowItsMiddle) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateSmall(index), 1);
  InsertAll(index, {"1", "2", "3", "4"});
  const char* bytes = files["people.vxx"].data();
  EXPECT_EQ(Get32(bytes + 435), 1u);
  EXPECT_EQ(Get32(bytes + 2 * 435), 2u);
  EXPECT_EQ(std::string(bytes + 3 * 435 + 12), "2");
}

TEST_F(IndexFile, PagesBelowThreeKeysAreRepaired) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateStandard(index), 1);
  InsertAll(index, {"1", "2", "3", "4", "5", "6", "7", "8", "9"});
  const auto keys_in = [&](size_t page) { return Get32(files["people.vxx"].data() + page * 1024); };
  ASSERT_EQ(index.Delete(1, "1"), 1);
  EXPECT_EQ(keys_in(1), 3u);
  EXPECT_EQ(keys_in(2), 4u);
  ASSERT_EQ(index.Delete(2, "2"), 1);
  EXPECT_EQ(keys_in(1), 3u) << "one came through the root";
  EXPECT_EQ(keys_in(2), 3u);
  EXPECT_EQ(std::string(files["people.vxx"].data() + 3 * 1024 + 12), "6");
  ASSERT_EQ(index.Delete(9, "9"), 1);
  EXPECT_EQ(keys_in(1), 6u) << "merged";
  EXPECT_EQ(index.startingpage(), 1u);
  EXPECT_EQ(index.numpages(), 4u) << "pages are never freed";
  EXPECT_EQ(Walk(index), "3:3 4:4 5:5 6:6 7:7 8:8");
}

// --- Order and search ------------------------------------------------------------------------

TEST_F(IndexFile, WhatCountsAsANumber) {
  int order;
  EXPECT_TRUE(ZDXIndexFile::NumberCompare("9", "10", order));
  EXPECT_EQ(order, -1);
  EXPECT_TRUE(ZDXIndexFile::NumberCompare("1.50", " 15e-1", order));
  EXPECT_EQ(order, 0);
  for (const char* text : {"1 ", "1a", "a", "1e999", "-1e999", "nan", "."}) {
    EXPECT_FALSE(ZDXIndexFile::NumberCompare("1", text, order)) << text;
  }
  EXPECT_LT(ZDXIndexFile::Compare("10", "9a", 1, 0), 0);
  EXPECT_GT(ZDXIndexFile::Compare("10", "9", 1, 0), 0);
  EXPECT_LT(ZDXIndexFile::Compare("10", "9", 1, kIndexString), 0);
  EXPECT_EQ(ZDXIndexFile::Compare("ab", "abc", 0, 0), 0);
  EXPECT_LT(ZDXIndexFile::Compare("ab", "abc", 1, 0), 0);
  EXPECT_LT(ZDXIndexFile::Compare("a", "\xE4", 1, 0), 0) << "bytes are unsigned";
}

TEST_F(IndexFile, StepsMayGoToAndFroForever) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateStandard(index), 1);
  InsertAll(index, {"1", "2"});
  uint32_t record;
  ASSERT_EQ(index._First(record), 1);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(index._Next(record), 1);
    ASSERT_EQ(record, 2u);
    ASSERT_EQ(index._Prev(record), 1);
    ASSERT_EQ(record, 1u);
  }
}

TEST_F(IndexFile, FindingNumbersAndBeginnings) {
  ZDXIndexFile numbers(files);
  ASSERT_EQ(numbers.Create("n.vxx", "n", {"N", 0, {3, 435, 20}}), 1);
  InsertAll(numbers, {"100", "9", "10", "20", "1000", "2"});
  EXPECT_EQ(Found(numbers, "10", 0), "3 10");
  EXPECT_EQ(Found(numbers, "10.0", 0), "3 10");
  EXPECT_EQ(Found(numbers, "1", 0), "3 10") << "begins so, though 2 and 9 come before it";
  EXPECT_EQ(Found(numbers, "100", 0), "1 100");
  EXPECT_EQ(Found(numbers, "7", 0), "0 ");
}

TEST_F(IndexFile, LongKeysAndNulsAreCut) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateStandard(index), 1);
  ASSERT_EQ(index.Insert(1, std::string(150, 'x')), 1);
  ASSERT_EQ(index.Insert(2, "ab\0cd"s), 1);
  EXPECT_EQ(Walk(index), "ab:2 " + std::string(99, 'x') + ":1");
  ASSERT_EQ(index.Delete(1, std::string(150, 'x')), 1);
  ASSERT_EQ(index.Delete(2, "ab"), 1);
  EXPECT_EQ(Walk(index), "");
}

TEST_F(IndexFile, NumbersAmongOtherKeysAreFoundAndDeleted) {
  for (const uint32_t flags : {0U, kIndexDescending}) {
    ZDXIndexFile index(files);
    ASSERT_EQ(CreateSmall(index, flags), 1);
    std::mt19937 random(7);
    std::vector<std::string> keys;
    for (int i = 0; i < 300; ++i) {
      keys.push_back(std::to_string(random() % 200) + (random() % 2 == 0 ? "" : "a"));
    }
    for (const char* key : {"-5", "-x", "inf", "info", " 7", "", "0x1F", "+", ".5"}) {
      keys.push_back(key);
    }
    InsertAll(index, keys);
    uint32_t record;
    for (const std::string& key : keys) {
      ASSERT_EQ(index._Find(key, 1, record), 1);
      EXPECT_TRUE(record != 0 && index.CursorEquals(key)) << key;
      // The first that begins so, in the order of the index.
      for (const std::string& prefix : {key.substr(0, 1), key}) {
        ASSERT_EQ(index._Find(prefix, 0, record), 1);
        EXPECT_TRUE(record != 0 &&
                    (index.CursorKey().view().starts_with(prefix) || index.CursorEquals(prefix)))
            << prefix;
      }
    }
    StringOutput out;
    const String path("people.vxx");
    (void)CheckTable(files, "people.dbf", std::span(&path, 1), out);
    out.Flush();
    EXPECT_FALSE(out.data().contains("order")) << out.data().view();
    for (size_t i = 0; i < keys.size(); ++i) {
      ASSERT_EQ(index.Delete(static_cast<uint32_t>(i + 1), keys[i]), 1) << i;
    }
    EXPECT_EQ(Walk(index), "");
  }
}

// --- Opening ---------------------------------------------------------------------------------

TEST_F(IndexFile, OpeningRefusesWhatIsNoIndex) {
  ZDXIndexFile index(files);
  EXPECT_EQ(Open(index), 0);
  EXPECT_EQ(index.error(), "Error opening 'people.vxx': No such file or directory");
  ASSERT_EQ(CreateStandard(index), 1);
  index.Close();
  std::string& bytes = files["people.vxx"];
  const auto error_with = [&](size_t place, std::string_view replacement) {
    const std::string saved = bytes;
    bytes.replace(place, replacement.size(), replacement);
    EXPECT_EQ(Open(index), 0);
    bytes = saved;
    return std::string(index.error().view());
  };
  const std::string no_index = "'people.vxx' is either corrupt or is not a valid index file";
  EXPECT_EQ(error_with(0, "zDXI"), no_index);
  EXPECT_EQ(error_with(4, "\x04"), "'people.vxx' was created by a newer version of the software");
  EXPECT_EQ(error_with(9, "\x01"), no_index) << "pages";
  EXPECT_EQ(error_with(13, "\0"s), no_index) << "root";
  EXPECT_EQ(error_with(17, "\0"s), no_index) << "order";
  EXPECT_EQ(error_with(17, "\x0A"), no_index) << "more keys than fit";
  EXPECT_EQ(error_with(19, "\0\0"s), no_index) << "page size";
  EXPECT_EQ(error_with(19, "\0\x03"s), no_index) << "page size";
  EXPECT_EQ(error_with(21, "\0\0"s), no_index) << "entry size";
  EXPECT_EQ(error_with(21, "\x08"), no_index) << "no room for keys";
  bytes.resize(426);
  EXPECT_EQ(Open(index), 0);
  EXPECT_EQ(index.error(), "Error reading from 'people.vxx': Unexpected end of file");
}

TEST_F(IndexFile, CreatingFailsWithoutLeavingAFile) {
  ZDXIndexFile index(files);
  EXPECT_EQ(index.Create(nullptr, "x.vxx", "x", {"A", 0, {}}), 0);
  EXPECT_EQ(index.error(), "Internal error opening 'x'");
  EXPECT_EQ(index.Create("x.vxx", "x", {String(std::string(400, 'a')), 0, {}}), 0);
  EXPECT_EQ(index.error(), "Error creating 'x': The key expression is longer than 399 characters");
  EXPECT_FALSE(files.Has("x.vxx"));
  ASSERT_EQ(index.Create("x.vxx", "x", {String(std::string(399, 'a')), 0, {}}), 1);
  EXPECT_EQ(index.Open("x.vxx", "x", OpenRead), 1);
  EXPECT_EQ(index.keyexpression(), std::string(399, 'a'));
}

// --- Building --------------------------------------------------------------------------------

TEST_F(IndexFile, UniqueBuildsFindDoublesAmongMixedKeys) {
  XBaseIndexBuilder builder(files, {"NAME", kIndexUnique, {}});
  builder.Add(1, "10");
  builder.Add(2, "1a");
  builder.Add(3, "2");
  builder.Add(4, "10.0");
  EXPECT_FALSE(builder.Write("people.vxx", "people"));
}

// --- Damage ----------------------------------------------------------------------------------

TEST_F(IndexFile, CyclesAndWrongPagesAreNamed) {
  ZDXIndexFile index(files);
  ASSERT_EQ(CreateStandard(index), 1);
  InsertAll(index, {"1", "2", "3", "4", "5", "6", "7", "8", "9"});
  const auto good = files.Snapshot();
  const auto errors_with = [&](size_t place, std::string_view replacement) {
    std::string errors;
    const auto use = [&](auto operation) {
      files.Restore(good);
      files["people.vxx"].replace(place, replacement.size(), replacement);
      ZDXIndexFile damaged(files);
      if (Open(damaged) == 0 || operation(damaged) == 0) {
        if (errors.find(damaged.error().view()) == std::string::npos)
          errors += damaged.error().view();
      } else {
        errors += "none";
      }
    };
    uint32_t record;
    use([&](ZDXIndexFile& i) { return i._First(record); });
    use([&](ZDXIndexFile& i) { return i._Find("1", 1, record); });
    use([&](ZDXIndexFile& i) { return i.Insert(10, "1"); });
    use([&](ZDXIndexFile& i) { return i.Delete(1, "1"); });
    EXPECT_EQ(files.locks(), 0);
    return errors;
  };
  EXPECT_EQ(errors_with(3 * 1024 + 4, "\x03"), "'people.vxx': File is corrupt");
  EXPECT_EQ(errors_with(3 * 1024 + 4, "\x05"),
            "Error 'people.vxx' is corrupt (the page number is larger than the total pages )");
  EXPECT_EQ(errors_with(3 * 1024 + 4, "\x04"),
            "Error reading from 'people.vxx': Unexpected end of file");
  EXPECT_EQ(errors_with(1024, "\x0A"),
            "File is corrupt (the number of entries is larger than the maximum entries possible).");
  // A count of pages that would put new pages over old ones.
  files.Restore(good);
  files["people.vxx"][9] = 3;
  ZDXIndexFile damaged(files);
  ASSERT_EQ(Open(damaged), 1);
  std::string error;
  for (int i = 0; i < 9 && error.empty(); ++i) {
    if (damaged.Insert(20, "0") == 0) error = damaged.error().view();
  }
  EXPECT_EQ(error, "'people.vxx': File is corrupt");
}

TEST_F(IndexFile, WalksThroughATangledTreeEnd) {
  // Every child of every page is the page below: no cycle, but 4^n ways through it.
  ZDXIndexHeader header;
  header.shape = {3, 435, 20};
  const uint32_t levels = 40;
  header.numpages = levels + 1;
  std::string& bytes = files["people.vxx"];
  bytes.resize(size_t{levels + 1} * 435);
  header.Encode(bytes.data());
  for (uint32_t number = 1; number <= levels; ++number) {
    char* page = bytes.data() + number * 435;
    Put32(page, 3);
    for (uint32_t i = 0; i <= 3; ++i) {
      Put32(page + 4 + i * 20, number == levels ? 0 : number + 1);
      Put32(page + 8 + i * 20, 1);
    }
  }
  ZDXIndexFile index(files);
  ASSERT_EQ(Open(index), 1);
  uint32_t record;
  bool found;
  ASSERT_EQ(index._First(record), 1);
  while (index._Next(record) != 0 && record != 0) {
  }
  EXPECT_EQ(index.error(), "'people.vxx': File is corrupt");
  EXPECT_EQ(index._Seek("", 99, found), 0);
  EXPECT_EQ(index._Find("5", 0, record), 0);
  EXPECT_EQ(index.Delete(99, ""), 0);
  EXPECT_EQ(files.locks(), 0);
}

}  // namespace

}  // namespace vexa
