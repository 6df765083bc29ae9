// Tables and indexes on real files, used by several processes at once, some of which are killed.
//
// Both tests are longer by hand: VEXA_TEST_SECONDS=20 and VEXA_TEST_KILLS=500.

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>

#include "file_fixture.h"
#include "xbase/check/table_check.h"
#include "xbase/index/index_builder.h"
#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

namespace {

int FromEnvironment(const char* name, int otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::atoi(value) : otherwise;
}

// One process with the table and its two indexes open: by name, and by a number that is unique.
class Worker {
 public:
  Worker(FileManager& files, const std::string& directory)
      : table_(files), names_(files), numbers_(files) {
    ok_ = table_.Open(In(directory, "t.dbf"), "t", OpenRead | OpenWrite) != 0 &&
          names_.Open("names", In(directory, "names.vxx"), "names") != 0 &&
          numbers_.Open("numbers", In(directory, "numbers.vxx"), "numbers") != 0;
  }
  static String In(const std::string& directory, const char* name) {
    return String::Concat({directory, "/", name});
  }
  [[nodiscard]] bool ok() const { return ok_; }
  XBaseTable& table() { return table_; }

  // Each of these is one operation as the database does it, all or nothing.
  bool Add(const std::string& name, int number) {
    XBaseIndexLock locks[2];
    if (!LockIndexes(locks)) return false;
    const String text = PrintNumber(number);
    if (numbers_.CheckUnique(text, 0) == 0) return false;
    SetFields(name, text);
    return table_.Append() != 0 && names_.Insert(Current(), name) != 0 &&
           numbers_.Insert(Current(), text) != 0;
  }
  bool Rename(int record, const std::string& name) {
    XBaseIndexLock locks[2];
    if (!LockIndexes(locks) || table_.Goto(record) == 0) return false;
    const String number = table_.fields()[1]->data();
    SetFields(name, number);
    table_.SwapOriginal();
    const String old_name = table_.fields()[0]->data();
    table_.SwapOriginal();
    return table_.Update() != 0 && names_.Delete(Current(), old_name) != 0 &&
           names_.Insert(Current(), name) != 0;
  }
  bool Mark(int record, int deleted) {
    return table_.Goto(record) != 0 && table_.UpdateDeleted(deleted) != 0;
  }
  // Reads along an index and checks that each record has a text that is its own.
  bool ReadAlong(int steps, bool by_name) {
    XBaseIndex& index = by_name ? names_ : numbers_;
    uint32_t record;
    if (index.First(record) == 0) return false;
    for (int i = 0; i < steps && record != 0; ++i) {
      if (record > static_cast<uint32_t>(table_.numrecords()) && table_.Refresh() == 0)
        return false;
      if (table_.Goto(static_cast<int>(record)) == 0 || !TextIsOwn()) return false;
      if (index.Next(record) == 0) return false;
    }
    return true;
  }
  bool TextIsOwn() {
    const std::string_view text = table_.fields()[2]->data();
    return text.starts_with("text of " + std::string(table_.fields()[1]->data().view()) + " ");
  }
  [[nodiscard]] std::string error() const {
    return std::string(table_.error().view()) + " " + names_.error().c_str() + " " +
           numbers_.error().c_str();
  }

 private:
  static String PrintNumber(int number) { return String(std::to_string(number)); }
  uint32_t Current() { return static_cast<uint32_t>(table_.recordnum()); }
  bool LockIndexes(XBaseIndexLock* locks) {
    return locks[0].Take(names_) != 0 && locks[1].Take(numbers_) != 0;
  }
  void SetFields(const std::string& name, const String& number) {
    table_.fields()[0]->Set(String(name));
    table_.fields()[1]->Set(number);
    // Between one block and a few.
    const std::string text = "text of " + std::string(number.view()) + " by " + name + " ";
    table_.fields()[2]->Set(String(text + std::string(name.size() * 131 % 1200, '.')));
  }

  XBaseTable table_;
  XBaseIndex names_;
  XBaseIndex numbers_;
  bool ok_ = false;
};

class TableProcesses : public FileFixture {
 protected:
  void SetUp() override {
    XBaseTable table(files);
    XBaseIndex names(files);
    XBaseIndex numbers(files);
    ASSERT_EQ(table.Create({Path("t.dbf"), "t", "", ""}, {{"NAME", XBaseFieldType::CHAR, 12, 0},
                                                          {"NUMBER", XBaseFieldType::NUMBER, 9, 0},
                                                          {"NOTE", XBaseFieldType::MEMO, 10, 0}}),
              1);
    // Small pages, so that they split and merge all the time.
    ASSERT_EQ(names.Create(Path("names.vxx"), "names", {"NAME", 0, {4, 512, 40}}), 1);
    ASSERT_EQ(
        numbers.Create(Path("numbers.vxx"), "numbers", {"NUMBER", kIndexUnique, {4, 512, 40}}), 1);
  }
  std::string Faults() {
    StringOutput out;
    const String indexes[] = {Path("names.vxx"), Path("numbers.vxx")};
    const int result = CheckTable(files, Path("t.dbf"), indexes, out);
    out.Flush();
    return result == 0 ? "" : std::string(out.data().view());
  }
  void Rebuild() {
    XBaseTable table(files);
    ASSERT_EQ(table.Open(Path("t.dbf"), "t", OpenRead | OpenWrite), 1);
    for (const char* name : {"names.vxx", "numbers.vxx"}) {
      XBaseIndex index(files);
      ASSERT_EQ(index.Open(name, Path(name), name), 1);
      XBaseIndexLock lock;
      ASSERT_EQ(lock.Take(index), 1);
      XBaseIndexBuilder builder(files, {index.KeyExpression(), index.Flags(), index.Shape()});
      for (int n = 1; n <= table.numrecords(); ++n) {
        ASSERT_EQ(table.Goto(n), 1);
        builder.Add(static_cast<uint32_t>(n), table.FindField(index.KeyExpression())->data());
      }
      ASSERT_EQ(builder.Write(Path(name), name), 1) << builder.error().view();
      ASSERT_EQ(builder.Install(), 1);
    }
  }
  // What a child does needs a file manager of its own: locks belong to the process.
  template <typename Body>
  pid_t Start(Body body) {
    return Fork([&] {
      FakeHost own_host;
      UNIXFileManager own_files(own_host);
      own_host.files = &own_files;
      Worker worker(own_files, directory());
      return worker.ok() ? body(worker) : 2;
    });
  }
};

std::string RandomName(std::mt19937& random) {
  std::string name;
  for (size_t i = 1 + random() % 10; i > 0; --i) name += static_cast<char>('a' + random() % 6);
  return name;
}

TEST_F(TableProcesses, EightProcessesAtOnce) {
  constexpr int kProcesses = 8;
  const int seconds = FromEnvironment("VEXA_TEST_SECONDS", 0);
  const int operations = 150;
  std::vector<pid_t> children;
  const auto begin = std::chrono::steady_clock::now();
  for (int p = 0; p < kProcesses; ++p) {
    children.push_back(Start([&](Worker& worker) {
      std::mt19937 random(static_cast<unsigned>(p));
      std::vector<int> mine;
      const auto going_on = [&](int i) {
        if (seconds == 0) return i < operations;
        return std::chrono::steady_clock::now() - begin < std::chrono::seconds(seconds);
      };
      for (int i = 0; going_on(i); ++i) {
        const auto what = random() % 10;
        bool good = true;
        if (mine.empty() || what < 5) {
          good = worker.Add(RandomName(random), p + kProcesses * i);
          mine.push_back(worker.table().recordnum());
        } else if (what < 8) {
          good = worker.Rename(mine[random() % mine.size()], RandomName(random));
        } else if (what < 9) {
          good = worker.Mark(mine[random() % mine.size()], static_cast<int>(random() % 2));
        } else {
          // Others may be changing what is read here, but never its number.
          good = worker.ReadAlong(30, false);
        }
        if (!good) {
          std::fprintf(stderr, "process %d: %s\n", p, worker.error().c_str());
          return 1;
        }
      }
      return 0;
    }));
  }
  for (pid_t child : children) EXPECT_EQ(ExitStatus(child), 0);
  EXPECT_EQ(Faults(), "");
  Worker worker(files, directory());
  ASSERT_TRUE(worker.ok());
  EXPECT_GT(worker.table().numrecords(), kProcesses * operations / 4);
  for (int n = 1; n <= worker.table().numrecords(); ++n) {
    ASSERT_EQ(worker.table().Goto(n), 1);
    ASSERT_TRUE(worker.TextIsOwn()) << "record " << n;
  }
}

TEST_F(TableProcesses, FewHandlesAreEnough) {
  // Four files take turns on one handle, and are opened by name again and again.
  host.settings.maxfiles = 1;
  Worker worker(files, directory());
  ASSERT_TRUE(worker.ok());
  std::mt19937 random(5);
  for (int i = 1; i <= 100; ++i) {
    ASSERT_TRUE(worker.Add(RandomName(random), i)) << worker.error();
    ASSERT_TRUE(worker.Rename(1 + i / 2, RandomName(random))) << worker.error();
  }
  EXPECT_EQ(Faults(), "");
  ASSERT_TRUE(worker.Mark(10, 1));

  // Another process packs meanwhile; the table's file may be closed at that moment.
  EXPECT_EQ(ExitStatus(Start([](Worker& other) { return other.table().Pack() != 0 ? 0 : 1; })), 0);
  Rebuild();
  ASSERT_TRUE(worker.Rename(20, "packed")) << worker.error();
  ASSERT_TRUE(worker.Add("added", 1000)) << worker.error();
  EXPECT_EQ(worker.table().numrecords(), 100);
  EXPECT_TRUE(worker.ReadAlong(1000, true)) << worker.error();
  EXPECT_EQ(Faults(), "");
}

TEST_F(TableProcesses, KilledAtRandomWhileWriting) {
  const int kills = FromEnvironment("VEXA_TEST_KILLS", 40);
  const char* given = std::getenv("VEXA_TEST_SEED");
  const unsigned seed =
      given != nullptr ? static_cast<unsigned>(std::atoi(given)) : std::random_device()();
  SCOPED_TRACE("VEXA_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  int promised = 0;  // records whose addition had returned
  int rebuilt = 0;   // kills that left an index the checker complains of
  for (int kill = 0; kill < kills && !HasFatalFailure(); ++kill) {
    int pipe_ends[2];
    ASSERT_EQ(::pipe(pipe_ends), 0);
    const auto child_seed = static_cast<unsigned>(random());
    const pid_t child = Start([&](Worker& worker) {
      std::mt19937 own(child_seed);
      // One byte for each addition that returned. It writes until it is killed.
      for (int i = 0; i < 1'000'000; ++i) {
        const bool adding = worker.table().numrecords() == 0 || own() % 3 != 0;
        const int records = worker.table().numrecords();
        if (adding && !worker.Add(RandomName(own), records + 1)) return 1;
        if (!adding && !worker.Rename(1 + static_cast<int>(own() % static_cast<unsigned>(records)),
                                      RandomName(own)))
          return 1;
        if (adding && ::write(pipe_ends[1], "+", 1) != 1) return 3;
      }
      return 0;
    });
    ::close(pipe_ends[1]);
    ::usleep(static_cast<useconds_t>(2000 + random() % 30000));
    ::kill(child, SIGKILL);
    EXPECT_EQ(ExitStatus(child), -1) << "the writer ended by itself";
    char bytes[4096];
    for (ssize_t got; (got = ::read(pipe_ends[0], bytes, sizeof bytes)) > 0;)
      promised += static_cast<int>(got);
    ::close(pipe_ends[0]);

    Worker worker(files, directory());
    ASSERT_TRUE(worker.ok()) << worker.error();
    XBaseTable& table = worker.table();
    // The last addition may have come through without having returned.
    ASSERT_GE(table.numrecords(), promised);
    ASSERT_LE(table.numrecords(), promised + 1);
    for (int n = 1; n <= table.numrecords(); ++n) {
      ASSERT_EQ(table.Goto(n), 1) << table.error().view();
      ASSERT_TRUE(worker.TextIsOwn()) << "record " << n;
    }
    promised = table.numrecords();
    // An index may lack or double the last keys; then the checker says so, and only of indexes.
    const std::string faults = Faults();
    if (faults.empty()) continue;
    ++rebuilt;
    ASSERT_NE(faults.find("/t.dbf: good"), std::string::npos) << faults;
    Rebuild();
    ASSERT_EQ(Faults(), "");
  }
  std::printf("%d records, %d of %d kills left an index to rebuild\n", promised, rebuilt, kills);
  EXPECT_GT(promised, kills);
}

}  // namespace

}  // namespace vexa
