// Names of variables as pages write them, and the tree that holds variables.

#include "core/variables.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "core/number.h"
#include "core/splay_tree.h"

namespace vexa {

namespace {

struct Named {
  explicit Named(String text) : text(std::move(text)) {}
  [[nodiscard]] const String& name() const { return text; }
  String text;
};

TEST(SplayTreeTest, FindsEachNameAndListsAllInOrderHoweverDeepItIs) {
  SplayTree<Named> tree;
  for (int i = 1000000; i < 1200000; ++i) tree.Insert(std::make_unique<Named>(PrintInteger(i)));
  for (int i = 999999; i < 1200001; i += 7) {
    EXPECT_EQ(tree.Find(PrintInteger(i)) != nullptr, i >= 1000000 && i < 1200000) << i;
  }
  int next = 1000000;
  tree.ForEach([&next](Named& named) { EXPECT_EQ(ReadInteger(named.name()), next++); });
  EXPECT_EQ(next, 1200000);
}

TEST(VariablesTest, SplitsWrittenNames) {
  std::string scopes;
  for (const char* name : {"l.Name", "LOCAL.a.b", "global.x", "S.x", "database.x", "c.d.name",
                           "a.Database.b.d.c", "lx.y", "x.y", "", "."}) {
    ScopedName scoped = Variables::Scope(name);
    scopes += std::to_string(static_cast<int>(scoped.scope)) + " " +
              std::string(scoped.database.text()) + ":" + std::string(scoped.variable.text()) +
              ", ";
  }
  EXPECT_EQ(scopes,
            "0 :NAME, 0 :A.B, 1 :X, 2 :X, 3 :X, 3 C:NAME, 3 A.DATABASE.B:C, 4 :Y, 4 :X.Y, 4 :, "
            "4 :., ");
}

}  // namespace

}  // namespace vexa
