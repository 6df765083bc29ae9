// Indexes against a model: random insertions, deletions, searches and steps, in every combination
// of flags and several shapes of the tree, whose invariants are checked on the way.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>

#include "index_model.h"
#include "memory_files.h"
#include "xbase/index/index_builder.h"
#include "xbase/index/index_file.h"

namespace vexa {

namespace {

struct Case {
  uint32_t flags;
  ZDXIndexShape shape;
  int operations;
  // Keys are numbers or words, from so many different ones.
  bool numbers;
  uint32_t different;
};

// By hand, VEXA_TEST_OPERATIONS=100000 makes every case that long.
int OperationsOf(const Case& c) {
  const char* given = std::getenv("VEXA_TEST_OPERATIONS");
  return given != nullptr ? std::atoi(given) : c.operations;
}

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << "flags" << c.flags << "_order" << c.shape.order << (c.numbers ? "_n" : "_w")
             << c.different;
}

// The seed of a failed run is in its message; VEXA_TEST_SEED repeats it.
unsigned Seed() {
  const char* given = std::getenv("VEXA_TEST_SEED");
  if (given != nullptr) return static_cast<unsigned>(std::strtoul(given, nullptr, 10));
  return static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count());
}

class IndexModelTest : public ::testing::TestWithParam<Case> {
 protected:
  IndexModelTest() : model_(GetParam().flags) {
    ZDXIndexSpec spec;
    spec.keyexpression = "NAME";
    spec.flags = GetParam().flags;
    spec.shape = GetParam().shape;
    // What was read must not be kept when time tells nothing.
    if (Random(2) == 0) files_.StopClock();
    EXPECT_EQ(index_.Create("a.vxx", "a", spec), 1);
    EXPECT_EQ(other_.Open("a.vxx", "a", OpenRead | OpenWrite), 1);
  }

  uint32_t Random(uint32_t below) {
    return std::uniform_int_distribution<uint32_t>(0, below - 1)(random_);
  }
  std::string RandomKey() {
    const uint32_t n = Random(GetParam().different);
    if (GetParam().numbers) return std::to_string(static_cast<int>(n) - 50);
    std::string word;
    for (uint32_t rest = n * 7 + 1; rest > 0; rest /= 5) word += static_cast<char>('a' + rest % 5);
    return word;
  }
  // Changes come through either of two open files, as from two processes.
  ZDXIndexFile& Either() { return Random(8) == 0 ? other_ : index_; }

  void Insert() {
    const std::string key = RandomKey();
    const uint32_t record = next_record_++;
    const bool refused = (GetParam().flags & kIndexUnique) != 0 && model_.Holds(key);
    ZDXIndexFile& index = Either();
    ASSERT_EQ(index.Insert(record, key), refused ? 0 : 1) << index.error().view();
    if (refused) {
      ASSERT_EQ(index.error(), "Index 'a' was created with the UNIQUE flag and the key '" + key +
                                   "' already exists in the index file");
    } else {
      model_.Insert(record, key);
    }
  }
  void Delete() {
    if (model_.entries().empty() || Random(20) == 0) {
      ZDXIndexFile& index = Either();
      ASSERT_EQ(index.Delete(999999999, RandomKey()), 0);
      ASSERT_EQ(index.error(), "Record is not in index");
      return;
    }
    const size_t at = Random(static_cast<uint32_t>(model_.entries().size()));
    const IndexModel::Entry entry = model_.entries()[at];
    ASSERT_EQ(Either().Delete(entry.record, entry.key), 1);
    model_.Erase(at);
  }
  void Find() {
    const std::string key = RandomKey();
    uint32_t record;
    ASSERT_EQ(index_._Find(key, 1, record), 1);
    cursor_ = model_.LowerBound(key);
    ASSERT_EQ(record, RecordAt(cursor_));
    ASSERT_EQ(index_.CursorEquals(key), model_.Holds(key));
  }
  void FindPrefix() {
    const std::string key = RandomKey().substr(0, 1 + Random(3));
    uint32_t record;
    ASSERT_EQ(index_._Find(key, 0, record), 1);
    size_t expected = model_.entries().size();
    // An equal number comes first, then whatever begins alike.
    if (GetParam().numbers && (GetParam().flags & kIndexString) == 0 && key != "-" &&
        model_.Holds(key)) {
      expected = model_.LowerBound(key);
    } else {
      for (size_t i = model_.entries().size(); i-- > 0;) {
        if (model_.entries()[i].key.starts_with(key)) expected = i;
      }
    }
    // A sign alone is no number, and no consistent prefix among numbers.
    if (key == "-" && (GetParam().flags & kIndexString) == 0) expected = SIZE_MAX;
    if (expected != SIZE_MAX) {
      ASSERT_EQ(record, RecordAt(expected)) << "prefix " << key;
    }
    cursor_ = SIZE_MAX;
  }
  void Seek() {
    if (model_.entries().empty()) return;
    cursor_ = Random(static_cast<uint32_t>(model_.entries().size()));
    bool found;
    ASSERT_EQ(index_._Seek(model_.entries()[cursor_].key, model_.entries()[cursor_].record, found),
              1);
    ASSERT_TRUE(found);
  }
  // A few steps with changes in between that the cursor's file may not know of.
  void StepAbout() {
    Seek();
    if (model_.entries().empty()) return;
    for (int i = 0; i < 12; ++i) {
      if (Random(3) == 0) {
        const IndexModel::Entry here = model_.entries()[cursor_];
        if (Random(2) == 0) {
          Insert();
        } else if (model_.entries().size() > 1) {
          size_t at = Random(static_cast<uint32_t>(model_.entries().size()));
          if (at == cursor_) at = (at + 1) % model_.entries().size();
          const IndexModel::Entry gone = model_.entries()[at];
          ASSERT_EQ(Either().Delete(gone.record, gone.key), 1);
          model_.Erase(at);
        }
        cursor_ =
            static_cast<size_t>(std::find(model_.entries().begin(), model_.entries().end(), here) -
                                model_.entries().begin());
      }
      uint32_t record;
      if (Random(2) == 0) {
        ASSERT_EQ(index_._Next(record), 1);
        ASSERT_EQ(record, RecordAt(cursor_ + 1));
        if (record != 0) ++cursor_;
      } else {
        ASSERT_EQ(index_._Prev(record), 1);
        ASSERT_EQ(record, cursor_ == 0 ? 0 : RecordAt(cursor_ - 1));
        if (record != 0) --cursor_;
      }
    }
  }
  void CheckEnds() {
    uint32_t record;
    ASSERT_EQ(index_._First(record), 1);
    ASSERT_EQ(record, RecordAt(0));
    ASSERT_EQ(index_._Last(record), 1);
    ASSERT_EQ(record, model_.entries().empty() ? 0 : model_.entries().back().record);
  }
  void CheckTree() {
    const TreeWalk walk = TreeWalker::Walk(files_["a.vxx"]);
    ASSERT_EQ(walk.fault, "");
    ASSERT_EQ(walk.entries.size(), model_.entries().size());
    ASSERT_TRUE(walk.entries == model_.entries());
  }

  [[nodiscard]] uint32_t RecordAt(size_t at) const {
    return at < model_.entries().size() ? model_.entries()[at].record : 0;
  }

  unsigned seed_ = Seed();
  std::mt19937 random_{seed_};
  MemoryFiles files_;
  ZDXIndexFile index_{files_};
  ZDXIndexFile other_{files_};
  IndexModel model_;
  uint32_t next_record_ = 1;
  size_t cursor_ = 0;
};

TEST_P(IndexModelTest, RandomOperationsAgree) {
  SCOPED_TRACE("VEXA_TEST_SEED=" + std::to_string(seed_));
  const int operations = OperationsOf(GetParam());
  for (int i = 0; i < operations; ++i) {
    // The tree grows and shrinks in turns, down to nothing.
    const bool growing = i / (operations / 6 + 1) % 2 == 0;
    const uint32_t what = Random(100);
    if (what < 70) {
      growing == (what < 52) ? Insert() : Delete();
    } else if (what < 80) {
      Find();
    } else if (what < 85) {
      FindPrefix();
    } else if (what < 90) {
      Seek();
    } else if (what < 95) {
      StepAbout();
    } else {
      CheckEnds();
    }
    if (i % 97 == 0 || i < 200) CheckTree();
    if (HasFatalFailure()) FAIL() << "operation " << i;
  }
  while (!model_.entries().empty() && !HasFatalFailure()) {
    const IndexModel::Entry entry = model_.entries()[model_.entries().size() / 2];
    ASSERT_EQ(index_.Delete(entry.record, entry.key), 1);
    model_.Erase(model_.entries().size() / 2);
    if (model_.entries().size() % 50 == 0) CheckTree();
  }
  EXPECT_EQ(files_.locks(), 0);
}

// Building at once gives what inserting in the order of the records gives, and a tree that stays
// good when it is changed.
TEST_P(IndexModelTest, BuildingAgreesWithInserting) {
  SCOPED_TRACE("VEXA_TEST_SEED=" + std::to_string(seed_));
  for (uint32_t count : {0u, 1u, 2u, 7u, 8u, 9u, 10u, 63u, 64u, 65u, 300u, 777u}) {
    ZDXIndexSpec spec;
    spec.keyexpression = "NAME";
    spec.flags = GetParam().flags & ~kIndexUnique;
    spec.shape = GetParam().shape;
    XBaseIndexBuilder builder(files_, spec);
    model_ = IndexModel(spec.flags);
    for (uint32_t record = 1; record <= count; ++record) {
      const std::string key = RandomKey();
      builder.Add(record, key);
      model_.Insert(record, key);
    }
    ASSERT_TRUE(builder.Write("a.vxx", "a")) << builder.error().view();
    ASSERT_TRUE(builder.Install());
    CheckTree();
    next_record_ = count + 1;
    for (int i = 0; i < 200 && !HasFatalFailure(); ++i) {
      const std::string key = RandomKey();
      if (Random(2) == 0) {
        ASSERT_EQ(index_.Insert(next_record_, key), 1);
        model_.Insert(next_record_++, key);
      } else {
        Delete();
      }
      CheckTree();
    }
    CheckEnds();
  }
  EXPECT_EQ(files_.Names(), std::vector<std::string>{"a.vxx"});
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  const ZDXIndexShape standard;
  for (uint32_t flags = 0; flags < 8; ++flags) {
    cases.push_back({flags, {3, 435, 20}, 4000, false, 400});
    cases.push_back({flags, {4, 512, 40}, 4000, true, 3000});
    cases.push_back({flags, standard, 4000, false, 5000});
  }
  cases.push_back({0, {2, 435, 30}, 3000, true, 50});
  cases.push_back({kIndexString, {5, 600, 30}, 3000, false, 5});
  cases.push_back({kIndexDescending, {40, 4096, 100}, 4000, true, 100000});
  cases.push_back({0, standard, 100000, false, 3000});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Trees, IndexModelTest, ::testing::ValuesIn(Cases()), [](const auto& info) {
  std::ostringstream name;
  name << info.param << "_" << info.index;
  return name.str();
});

}  // namespace

}  // namespace vexa
