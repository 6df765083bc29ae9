// Scopes of variables, the tree that holds them, and outputs.

#include "core/variables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>

#include "core/number.h"
#include "core/splay_tree.h"
#include "core/text.h"
#include "fake_host.h"

namespace vexa {

namespace {

struct IgnoreCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return CompareIgnoreCase(a, b) < 0;
  }
};

TEST(VariableTreeTest, AgreesWithAMapThroughRandomUse) {
  constexpr unsigned kSeed = 20;
  std::mt19937 random(kSeed);
  VariableTree tree;
  std::map<std::string, std::string, IgnoreCase> model;
  for (int step = 0; step < 20000; ++step) {
    std::string name = (random() % 2 != 0 ? "v" : "V") + std::to_string(random() % 700);
    if (random() % 3 == 0) {
      std::string value = std::to_string(step);
      ASSERT_EQ(tree.SetVariable(name, String(value)), nullptr);
      model[name] = value;
    }
    Variable* found = tree.Find(name);
    auto expected = model.find(name);
    ASSERT_EQ(found != nullptr, expected != model.end()) << "seed " << kSeed;
    if (found != nullptr) {
      ASSERT_EQ(found->value().view(), expected->second);
    }
  }
  auto next = model.begin();
  tree.ForEach([&](Variable& variable) {
    ASSERT_NE(next, model.end());
    EXPECT_EQ(variable.name().view(), next->first);
    ++next;
  });
  EXPECT_EQ(next, model.end());
}

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

TEST(VariablesTest, PushedSystemScopesComeFirst) {
  FakeHost host;
  Variables variables(host);
  VariableTree pushed;
  variables.AddSystemVariable("a", "old");
  variables.AddSystemVariable("A", "system");
  pushed.SetVariable("a", "pushed");
  variables.PushSystemVars(&pushed);
  EXPECT_EQ(variables.Value("s.a"), "pushed");
  EXPECT_EQ(variables.SetVariable("a", "set"), nullptr);
  variables.PopSystemVars();
  EXPECT_EQ(variables.Value("a"), "system");
  EXPECT_EQ(pushed.Find("A")->value(), "set");
  EXPECT_EQ(variables.GetSystemVariableValue("s.a"), "");
}

TEST(OutputTest, WritesFullBuffers) {
  TextOutput out(8, "|");
  out.Write("01234567890123456789");
  EXPECT_EQ(out.text, "01234567|89012345|");
  out.Write("abcd");
  out.Write("e");
  EXPECT_EQ(out.text, "01234567|89012345|6789abcd|");
  out.Resize(3);
  out.Write("xyz");
  EXPECT_EQ(out.text, "01234567|89012345|6789abcd|e|");
  out.Flush();
  out.Flush();
  EXPECT_EQ(out.text, "01234567|89012345|6789abcd|e|xyz|");
}

}  // namespace

}  // namespace vexa
