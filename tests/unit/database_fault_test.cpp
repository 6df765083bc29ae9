// Databases on files that fail: whatever operation of the file system is refused, a change of a
// record happens with all its index entries or not at all, and can be repeated afterwards.
//
// One failure is more than that: when a page of an index can be read but not written over, while
// other pages can, keys may stand twice. No disk that is merely full does this. The records must be
// right even then.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/variables.h"
#include "engine/module.h"
#include "fake_host.h"
#include "table_fixture.h"
#include "tags/tag_table.h"
#include "xbase/database/xbase_database.h"
#include "xbase/database/xbase_database_view.h"

namespace vexa {

namespace {

class DatabaseFaults : public TableFixture {
 protected:
  // Fills the leaf of both indexes, so that the next insertion splits it.
  static constexpr int kPeople = 8;

  DatabaseFaults() : variables_(host_), module_(SetUpHost(), kVexaTags) {
    host_.expressions = &module_.scriptparser();
    XBaseDatabase people(host_, "people");
    EXPECT_EQ(people.Create("people.dbf", "NAME CHAR(10), AGE NUMBER(3), NOTE MEMO"), 1);
    EXPECT_EQ(people.CreateIndex("name.vxx", "NAME", ""), 1);
    EXPECT_EQ(people.CreateIndex("age.vxx", "AGE", "unique"), 1);
    for (int i = 1; i <= kPeople; ++i) {
      Assign(people, "p" + std::to_string(i), std::to_string(10 * i), "note");
      EXPECT_EQ(people.PrimaryView()->Add(), DataResult::Done);
    }
    EXPECT_EQ(people.PrimaryView()->Go(2), DataResult::Done);
    EXPECT_EQ(people.PrimaryView()->Delete(), DataResult::Done);
    people.Close();
    good_ = files.Snapshot();
    before_ = Content();
  }

  static void Assign(XBaseDatabase& people, const std::string& name, const std::string& age,
                     const std::string& note) {
    DatabaseView& view = *people.PrimaryView();
    EXPECT_TRUE(view.FindVariable(Symbol("name"))->SetValue(String(name)));
    EXPECT_TRUE(view.FindVariable(Symbol("age"))->SetValue(String(age)));
    EXPECT_TRUE(view.FindVariable(Symbol("note"))->SetValue(String(note)));
  }

  std::string Records() {
    XBaseTable table(files);
    EXPECT_EQ(Open(table), 1);
    std::string records;
    for (int n = 1; n <= table.numrecords(); ++n) records += Values(table, n) + "\n";
    return records;
  }

  // All records, and the record numbers in the order of both indexes.
  std::string Content() {
    std::string content = Records();
    for (const char* path : {"name.vxx", "age.vxx"}) {
      ZDXIndexFile index(files);
      if (index.Open(path, path, OpenRead) == 0) {
        content += std::string("no ") + path + "\n";
        continue;
      }
      content += Walk(index) + "\n";
    }
    return content;
  }

  using Operation = std::function<bool(XBaseDatabase&)>;

  // Refuses each operation of the file system in turn while `change` runs, on record 3. `after` is
  // what it makes of the database.
  void RefuseEach(const Operation& change, const std::string& after) {
    int failures = 0;
    for (int at = 1;; ++at) {
      SCOPED_TRACE("operation " + std::to_string(at));
      files.Restore(good_);
      XBaseDatabase people(host_, "people");
      ASSERT_EQ(people.Open("people.dbf", "", ""), 1);
      ASSERT_EQ(people.OpenIndexes("name.vxx, age.vxx"), 1);
      ASSERT_EQ(people.PrimaryView()->Go(3), DataResult::Done);
      Assign(people, "zed", "35", "changed");
      files.Arm(MemoryFiles::Fault::RefuseOne, at);
      const bool done = change(people);
      const bool reached = files.operations() >= at;
      const bool damaged = std::string_view(files.refused_rewrite()).ends_with(".vxx");
      files.Disarm();
      EXPECT_EQ(files.locks(), 0);
      const std::string& expected = done ? after : before_;
      EXPECT_TRUE(expected.starts_with(Records())) << Records();
      if (!damaged) {
        EXPECT_EQ(Faults({"name.vxx", "age.vxx"}), "");
        EXPECT_EQ(Content(), expected);
      }
      if (!done && !damaged) {
        ++failures;
        EXPECT_EQ(people.PrimaryView()->FindVariable(Symbol("name"))->value(), "zed");
        EXPECT_EQ(people.PrimaryView()->FindVariable(Symbol("note"))->value(), "changed");
        EXPECT_TRUE(change(people)) << "repeated: " << people.PrimaryView()->error().view();
        EXPECT_EQ(Content(), after);
        EXPECT_EQ(Faults({"name.vxx", "age.vxx"}), "");
      }
      if (!reached || HasFailure()) break;
    }
    EXPECT_GT(failures, 20);
  }

  // What `change` makes of the database when nothing fails.
  std::string ContentAfter(const Operation& change) {
    files.Restore(good_);
    XBaseDatabase people(host_, "people");
    EXPECT_EQ(people.Open("people.dbf", "", ""), 1);
    EXPECT_EQ(people.OpenIndexes("name.vxx, age.vxx"), 1);
    EXPECT_EQ(people.PrimaryView()->Go(3), DataResult::Done);
    Assign(people, "zed", "35", "changed");
    EXPECT_TRUE(change(people));
    return Content();
  }

  FakeHost host_;
  Variables variables_;
  Module module_;
  std::map<std::string, std::string> good_;
  std::string before_;

 private:
  FakeHost& SetUpHost() {
    host_.files = &files;
    host_.variables = &variables_;
    return host_;
  }
};

bool Add(XBaseDatabase& people) {
  const DataResult result = people.PrimaryView()->Add();
  EXPECT_NE(result == DataResult::Failed, people.PrimaryView()->error().empty());
  return result == DataResult::Done;
}

bool Update(XBaseDatabase& people) {
  const DataResult result = people.PrimaryView()->Update();
  EXPECT_NE(result == DataResult::Failed, people.PrimaryView()->error().empty());
  return result == DataResult::Done;
}

TEST_F(DatabaseFaults, AnAddHappensWithItsKeysOrNotAtAll) {
  const std::string after = ContentAfter(Add);
  EXPECT_NE(after.find("zed|35|changed"), std::string::npos);
  RefuseEach(Add, after);
}

TEST_F(DatabaseFaults, AnUpdateHappensWithItsKeysOrNotAtAll) {
  const std::string after = ContentAfter(Update);
  EXPECT_NE(after.find("zed:3"), std::string::npos);
  RefuseEach(Update, after);
}

TEST_F(DatabaseFaults, IndexesAreAllMadeAnewOrWorkAsBefore) {
  for (int at = 1;; ++at) {
    SCOPED_TRACE("operation " + std::to_string(at));
    files.Restore(good_);
    XBaseDatabase people(host_, "people");
    ASSERT_EQ(people.Open("people.dbf", "", ""), 1);
    ASSERT_EQ(people.OpenIndexes("name.vxx, age.vxx"), 1);
    files.Arm(MemoryFiles::Fault::RefuseOne, at);
    const bool done = people.Reindex() != 0;
    const bool reached = files.operations() >= at;
    files.Disarm();
    EXPECT_NE(done, !people.error().empty());
    EXPECT_EQ(files.locks(), 0);
    EXPECT_EQ(Content(), before_);
    EXPECT_EQ(Faults({"name.vxx", "age.vxx"}), "");
    if (!reached || HasFailure()) break;
  }
}

TEST_F(DatabaseFaults, APackIsDoneOrNotAndNoIndexNamesWrongRecords) {
  const std::string after =
      ContentAfter([](XBaseDatabase& people) { return people.Pack() == DataResult::Done; });
  int failures = 0;
  for (int at = 1;; ++at) {
    SCOPED_TRACE("operation " + std::to_string(at));
    files.Restore(good_);
    {
      XBaseDatabase people(host_, "people");
      ASSERT_EQ(people.Open("people.dbf", "", ""), 1);
      ASSERT_EQ(people.OpenIndexes("name.vxx, age.vxx"), 1);
      files.Arm(MemoryFiles::Fault::RefuseOne, at);
      const bool done = people.Pack() != DataResult::Failed;
      const bool reached = files.operations() >= at;
      files.Disarm();
      EXPECT_NE(done, !people.error().empty());
      EXPECT_EQ(files.locks(), 0);
      if (!done) ++failures;
      if (!reached) break;
    }
    std::vector<String> indexes;
    for (const char* path : {"name.vxx", "age.vxx"}) {
      if (files.Has(path)) indexes.push_back(path);
    }
    EXPECT_EQ(Faults(indexes), "");
    const std::string content = Content();
    if (indexes.size() == 2) {
      EXPECT_TRUE(content == before_ || content == after) << content;
    }
    if (HasFailure()) break;
  }
  EXPECT_GT(failures, 20);
}

}  // namespace

}  // namespace vexa
