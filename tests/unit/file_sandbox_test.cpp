// Where names may lead: normalising, links and their owners, the roots, and the name helpers.

#include <limits.h>

#include "file_fixture.h"
#include "files/file_paths.h"
#include "files/sandbox.h"

namespace vexa {

namespace {

class FileSandboxTest : public FileFixture {
 protected:
  FileSandboxTest() {
    for (const char* name : {"d", "tmp"}) {
      std::filesystem::create_directory(Path(name).c_str());
    }
    data_ = Path("d");
    host.settings.tempdir = Path("tmp");
  }

  // The path `name` resolves to, below the test's directory, or the message.
  std::string Resolve(std::string_view name, PathType type = PathType::DataPath) {
    const Sandbox sandbox{host.settings, files, none_, data_, none_};
    String resolved = "untouched";
    String message;
    if (sandbox.ResolvePath(String(name), resolved, type, message) == 0) {
      EXPECT_EQ(resolved, "untouched");
      return std::string(message.view());
    }
    const std::string_view path = resolved.view();
    return std::string(path.starts_with(directory()) ? path.substr(directory().size()) : path);
  }
  // What FollowPath makes of a path: the result below the directory, or the number.
  std::string Follow(const String& path, int links = 0, int others = 0) const {
    String result = path;
    const int outcome = files.FollowPath(result, links, others);
    if (outcome == 0) return std::string(result.view());
    EXPECT_EQ(result, path);
    return std::to_string(outcome);
  }

  const String none_;  // the directories of scripts, which are not asked for
  String data_;
};

constexpr char kLink[] = "' references a symbolic link";
constexpr char kOther[] =
    "' references a symbolic link to a directory or file owned by a different user";
constexpr char kNothing[] =
    "' references a symbolic link to a directory or file that does not exist";
constexpr char kNotInData[] = "' is not contained in the configured data directory";
constexpr char kNotInTemporary[] = "' is not contained in the configured temporary directory";

std::string Message(std::string_view name, std::string_view text) {
  return "'" + std::string(name) + std::string(text);
}

TEST_F(FileSandboxTest, DotsAreTakenOutByText) {
  const struct {
    const char* path;
    const char* result;
  } kCases[] = {
      {"/a/./b/../c", "/a/c"},
      {"/a/b/..", "/a"},
      {"/../../a", "/a"},
      {"/.", ""},
      {"/a//b/", "/a//b/"},
      {"/a//../b", "/a/b"},
      {"/", "/"},
      {"", ""},
      {"/..a/...", "/..a/..."},
      {"/a/.hidden", "/a/.hidden"},
      {"a/../b", "b"},
      {"../x", "../x"},
      {"../../x", "../../x"},
      {"a/b/../../..", ".."},
  };
  for (const auto& [path, result] : kCases) EXPECT_EQ(Follow(path), result) << path;
  // No text of any length or depth costs more than its length.
  std::string deep;
  for (int i = 0; i < 20'000; ++i) deep += "/x/..";
  EXPECT_EQ(Follow(String(deep)), "");
  std::string long_path;
  for (int i = 0; i < 500'000; ++i) long_path += "/x";
  EXPECT_EQ(Follow(String(long_path + "/../y")), long_path.substr(2) + "/y");
  EXPECT_EQ(Follow(String("/" + std::string(PATH_MAX, 'n'))), "/" + std::string(PATH_MAX, 'n'));
}

TEST_F(FileSandboxTest, TemporaryNamesHaveARootAndABitOfTheirOwn) {
  constexpr PathType kType = PathType::TemporaryPath;
  Link("../d", "tmp/l");
  EXPECT_EQ(Resolve("../x", kType), Message("../x", kNotInTemporary));
  host.settings.securityoptions = ~kTemporaryLinks;
  EXPECT_EQ(Resolve("l", kType), Message("l", kLink));
  EXPECT_EQ(Resolve("/x", kType), "/tmp/x");  // no bit takes absolute names as they stand
  host.settings.securityoptions = kTemporaryLinks;
  EXPECT_EQ(Resolve("l", kType), "/tmp/l");
  host.settings.tempdir = "";
  EXPECT_EQ(Resolve("x", kType), "/d/x");
  EXPECT_EQ(Resolve("../x", kType), Message("../x", kNotInData));
  host.settings.securityoptions = kAbsoluteDataPaths;
  data_ = "";  // a root that was never set contains nothing
  EXPECT_EQ(Resolve("/etc/passwd"), Message("/etc/passwd", kNotInData));
}

TEST_F(FileSandboxTest, LinksToOthersAndToNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "changing owners takes root";
  Make("d/mine");
  Make("d/theirs");
  ASSERT_EQ(::chown(Path("d/theirs").c_str(), 4711, 4711), 0);
  Link("mine", "d/to_mine");
  Link("theirs", "d/to_theirs");
  Link("to_theirs", "d/chain");
  Link("missing", "d/dangling");
  Link("circle2", "d/circle1");
  Link("circle1", "d/circle2");
  host.settings.securityoptions = kDataLinks;
  EXPECT_EQ(Resolve("to_mine"), "/d/to_mine");
  EXPECT_EQ(Resolve("theirs"), "/d/theirs");  // no link, no question
  EXPECT_EQ(Resolve("to_theirs"), Message("to_theirs", kOther));
  EXPECT_EQ(Resolve("chain"), Message("chain", kOther));
  EXPECT_EQ(Resolve("dangling"), Message("dangling", kNothing));
  EXPECT_EQ(Resolve("circle1"), Message("circle1", kNothing));
  // A link of theirs to their own file is as good as one of ours to ours.
  ASSERT_EQ(::lchown(Path("d/to_theirs").c_str(), 4711, 4711), 0);
  EXPECT_EQ(Resolve("to_theirs"), "/d/to_theirs");
  EXPECT_EQ(Resolve("chain"), Message("chain", kOther));

  host.settings.securityoptions = kDataLinks | kDataLinksToOthers;
  EXPECT_EQ(Resolve("chain"), "/d/chain");
  EXPECT_EQ(Resolve("dangling"), "/d/dangling");
  EXPECT_EQ(Resolve("circle1"), Message("circle1", kNothing));
}

TEST_F(FileSandboxTest, DecoyDoesNotHideTheRealEndOfAChain) {
  if (::geteuid() != 0) GTEST_SKIP() << "changing owners takes root";
  // The chain's second hop counts from d, where a harmless file stands; the system goes to sub.
  std::filesystem::create_directory(Path("d/sub").c_str());
  Make("d/target");
  Make("d/sub/target");
  ASSERT_EQ(::chown(Path("d/sub/target").c_str(), 4711, 4711), 0);
  Link("sub/hop", "d/l");
  Link("target", "d/sub/hop");
  EXPECT_EQ(Follow(Path("d/l"), 1, 0), "2");
  std::filesystem::remove(Path("d/sub/target").c_str());
  EXPECT_EQ(Follow(Path("d/l"), 1, 0), "3");
  Make("d/sub/target");
  EXPECT_EQ(Follow(Path("d/l"), 1, 0), Path("d/l").view());
}

TEST_F(FileSandboxTest, ChainsEndAfterFortyHops) {
  Make("d/0");
  for (int i = 1; i <= kMostLinkHops + 1; ++i) {
    Link(std::to_string(i - 1), "d/" + std::to_string(i));
  }
  for (const int others : {0, 1}) {
    EXPECT_EQ(Follow(Path("d/40"), 1, others), Path("d/40").view());
    EXPECT_EQ(Follow(Path("d/41"), 1, others), "3");
  }
}

TEST_F(FileSandboxTest, TargetsOfAnyLengthAreReadWhole) {
  // Longer than the first buffer, exactly as long as it, and just below.
  for (const size_t length : {size_t{1023}, size_t{1024}, size_t{3000}}) {
    std::string target;
    while (target.size() + 2 < length) target += "./";
    target += std::string(length - target.size(), 'm');
    const std::string name = "d/l" + std::to_string(length);
    Link(target, name);
    Make("d/" + std::string(target.substr(target.rfind('/') + 1)));
    EXPECT_EQ(Follow(Path(name), 1, 0), Path(name).view());
    EXPECT_EQ(Follow(Path(name), 0, 0), "1");
  }
}

TEST_F(FileSandboxTest, OwnersAreThoseOfLinksThemselves) {
  if (::geteuid() != 0) GTEST_SKIP() << "changing owners takes root";
  Make("d/a");
  Link("a", "d/l");
  ASSERT_EQ(::lchown(Path("d/l").c_str(), 4711, 4711), 0);
  EXPECT_EQ(files.GetOwnerUID(Path("d/a")), ::geteuid());
  EXPECT_EQ(files.GetOwnerUID(Path("d/l")), 4711u);
  EXPECT_EQ(files.GetOwnerUID(Path("d/none")), static_cast<uid_t>(-1));
}

TEST_F(FileSandboxTest, NameHelpers) {
  const struct {
    const char* path;
    const char* without_extension;
    const char* without_directory;
  } kCases[] = {
      {"/a/b.dbf", "/a/b", "b.dbf"},
      {"/a.d/b", "/a.d/b", "b"},
      {"b.x.y", "b.x", "b.x.y"},
      {".profile", ".profile", ".profile"},
      {"a.", "a", "a."},
      {"/a/.x", "/a/", ".x"},
      {"/b", "/b", "b"},
      {"a/", "a/", ""},
      {"/", "/", ""},
      {"", "", ""},
  };
  for (const auto& [path, without_extension, without_directory] : kCases) {
    EXPECT_EQ(files.StripExtension(path), without_extension) << path;
    EXPECT_EQ(files.StripDirectory(path), without_directory) << path;
  }
}

// What pages cannot reach when they please; the others race against links in system/link_race_test.
TEST_F(FileSandboxTest, NothingPassesALinkThatCameBehindTheCheck) {
  std::filesystem::create_directories(Path("s/real").c_str());
  Make("s/real/f", "text");
  Link("real", "s/l");
  const String root = Path("s"), f = Path("s/l/f"), fresh = Path("s/l/new");
  for (const LinkRule rule : {LinkRule::Follow, LinkRule::Refuse}) {
    const bool follows = rule == LinkRule::Follow;
    files.SetLinkRules({{{root.view(), rule}, {}, {}}});
    struct stat status;
    String name = fresh, real, digits;
    const int bare = files.OpenDescriptor(f, O_RDONLY, 0);
    EXPECT_EQ(bare >= 0 && ::close(bare) == 0, follows);
    EXPECT_EQ(files.RealPath(f, real) == 0 && files.MayWrite(f), follows);
    EXPECT_EQ(files.LookAt(f, status) == 0 && files.SyncDirectory(f) == 0, follows);
    EXPECT_EQ(files.WriteNew(fresh, "x") == 0 && files.Delete(fresh) == 0, follows);
    EXPECT_EQ(files.MakeTemporary(name, digits, OpenWrite) && files.Delete(name) == 0, follows);
    EXPECT_EQ(files.MakeUnnamed(fresh) != nullptr, follows);
    EXPECT_EQ(files.FollowsLink(Path("s/l")), follows);
    EXPECT_TRUE(follows || files.error() == strerror(ELOOP)) << files.error().c_str();
  }
  host.settings.maxfiles = 1;
  const auto file = files.Open(Path("s/real/f"), OpenRead);
  const auto other = files.Open(Make("s/other"), OpenRead);
  ASSERT_EQ(::rename(Path("s/real").c_str(), Path("moved").c_str()), 0);
  Link("../moved", "s/real");
  EXPECT_EQ(file->Length(), -1);
  EXPECT_EQ(file->error(), strerror(ELOOP));
}

// Roots within each other: what the sandbox found last in a directory counts there.
TEST_F(FileSandboxTest, TheRuleForLinksIsThatOfTheRootAPathWasResolvedIn) {
  constexpr LinkRule kFollow = LinkRule::Follow, kRefuse = LinkRule::Refuse;
  LinkRules rules;
  rules.Set({{{"/s", kRefuse}, {"/s/data", kFollow}, {"", kRefuse}}});
  EXPECT_EQ(rules.For("/etc/x"), kFollow);
  EXPECT_EQ(rules.For("/srv/x"), kRefuse);  // as the roots contain paths
  EXPECT_EQ(rules.For("/s/data/x"), kFollow);
  rules.Note("/s/data/x", kRefuse);
  rules.Note("/s/x", kFollow);
  EXPECT_EQ(rules.For("/s/data/x-journal"), kRefuse);
  EXPECT_EQ(rules.For("/s/data/d/x"), kFollow);
  EXPECT_EQ(rules.For("/s/x"), kRefuse);
  rules.Note("/s/data/y", kFollow);
  EXPECT_EQ(rules.For("/s/data/x"), kFollow);
}

}  // namespace

}  // namespace vexa
