// The handle budget, and the operations of the file manager on files and paths.

#include <sys/resource.h>

#include <vector>

#include "file_fixture.h"

namespace vexa {

namespace {

class FileManagerTest : public FileFixture {};

TEST_F(FileManagerTest, FourthFileTakesTheHandleOfTheOldest) {
  host.settings.maxfiles = 3;
  std::vector<std::unique_ptr<File>> open;
  for (const char* name : {"a", "b", "c", "d"}) {
    Make(name, std::string("0123456789") + name);
    open.push_back(Open(name, OpenRead));
    ASSERT_NE(open.back(), nullptr);
    EXPECT_EQ(Next(*open.back(), 4), "0123");
  }
  EXPECT_EQ(Descriptors(), 3);
  EXPECT_EQ(Descriptors("a"), 0);
  EXPECT_EQ(Next(*open[0], 7), "456789a");
  EXPECT_EQ(Descriptors("a"), 1);
  EXPECT_EQ(Descriptors("b"), 0);
  EXPECT_EQ(open[2]->Tell(), 4);  // c is used again, so d is now the oldest
  EXPECT_EQ(open[1]->Length(), 11);
  EXPECT_EQ(Descriptors("d"), 0);
  EXPECT_EQ(Descriptors("c"), 1);
}

TEST_F(FileManagerTest, SmallBudgetsReopenWithoutCreatingOrEmptying) {
  for (const int budget : {1, 2}) {
    host.settings.maxfiles = budget;
    Make("kept", "old content");
    auto made = Open("made", OpenRead | OpenWrite | OpenCreate | OpenTruncate);
    ASSERT_EQ(made->Write("hello", 5), 5);
    auto log = Open("log", OpenWrite | OpenCreate | OpenTruncate | OpenAppend);
    auto kept = Open("kept", OpenRead | OpenWrite);
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(made->Write("+", 1), 1);
      ASSERT_EQ(log->Write("x", 1), 1);
      ASSERT_EQ(kept->WriteAt(i, "#", 1), 1);
      EXPECT_LE(Descriptors(), budget);
    }
    EXPECT_EQ(Content("made"), "hello+++");
    EXPECT_EQ(Content("log"), "xxx");
    EXPECT_EQ(Content("kept"), "### content");
  }
}

TEST_F(FileManagerTest, FileThatIsGoneOrReplacedIsNotReopened) {
  host.settings.maxfiles = 1;
  auto a = files.Open(Make("a", "first"), OpenRead);
  auto b = files.Open(Make("b", "other"), OpenRead);
  EXPECT_EQ(a->StillNamed(), 1);
  Make("new", "second");
  ASSERT_EQ(files.Rename(Path("new"), Path("a")), 0);
  EXPECT_EQ(a->StillNamed(), 0);
  EXPECT_EQ(Next(*a, 5), "error");
  EXPECT_EQ(a->error(), strerror(ESTALE));
  ASSERT_EQ(files.Delete(Path("a")), 0);
  EXPECT_EQ(a->StillNamed(), 0);
  EXPECT_EQ(a->Seek(0), -1);
  EXPECT_EQ(a->error(), strerror(ENOENT));
  EXPECT_EQ(Next(*b, 5), "other");  // the failed attempts have cost it nothing
}

TEST_F(FileManagerTest, TouchingReachesTheOpenFileAndNoOtherOfItsName) {
  using std::filesystem::last_write_time;
  auto a = files.Open(Make("a"), OpenRead);
  SetAge(Path("a"), 1000);
  const auto old = last_write_time(Path("a").c_str());
  EXPECT_EQ(a->Touch(), 0) << a->error().view();
  EXPECT_GT(last_write_time(Path("a").c_str()), old);
  SetAge(Make("new"), 1000);
  ASSERT_EQ(files.Rename(Path("new"), Path("a")), 0);
  const auto other = last_write_time(Path("a").c_str());
  EXPECT_EQ(a->Touch(), 0) << a->error().view();
  EXPECT_EQ(last_write_time(Path("a").c_str()), other);
  host.settings.maxfiles = 1;
  auto b = files.Open(Make("b"), OpenRead);  // puts the descriptor of `a` to rest
  EXPECT_LT(a->Touch(), 0);
  EXPECT_EQ(last_write_time(Path("a").c_str()), other);
  EXPECT_EQ(files.TouchFile(Path("a")), 1);
  EXPECT_GT(last_write_time(Path("a").c_str()), other);
  EXPECT_EQ(files.TouchFile(Path("none")), 0);
}

TEST_F(FileManagerTest, OffsetsBeyondFourGigabytesSurviveReopening) {
  host.settings.maxfiles = 1;
  const int64_t far = (int64_t{5} << 30) + 1;
  auto a = Open("a", OpenRead | OpenWrite | OpenCreate);
  ASSERT_EQ(a->Seek(far), far);
  ASSERT_EQ(a->Write("end", 3), 3);
  auto b = Open("b", OpenWrite | OpenCreate);
  EXPECT_EQ(a->Tell(), far + 3);
  EXPECT_EQ(a->Length(), far + 3);
  EXPECT_EQ(files.Length(Path("a")), far + 3);
  char text[8];
  EXPECT_EQ(a->ReadAt(far, text, 8), 3);
  EXPECT_EQ(a->Truncate(0), 0);
}

TEST_F(FileManagerTest, BudgetTooSmallForCopyIsAnError) {
  host.settings.maxfiles = 1;
  Make("a", "x");
  EXPECT_EQ(files.Copy(Path("a"), Path("b")), -1);
  EXPECT_EQ(files.error(),
            "Simultaneous request for 2 file handles exceeds the 'maxfiles' configuration "
            "directive.");
  EXPECT_FALSE(files.Exists(Path("b")));
}

TEST_F(FileManagerTest, LockedFilesKeepTheirHandles) {
  host.settings.maxfiles = 1;
  auto table = files.Open(Make("table", "data"), OpenRead | OpenWrite);
  auto again = Open("table", OpenRead);
  ASSERT_EQ(table->Lock(FileLockType::Exclusive, 2, 1), 0);
  EXPECT_EQ(Next(*again, 4), "data");  // both Files of the locked file stay open
  auto other = files.Open(Make("other", "o"), OpenRead);
  EXPECT_EQ(Next(*other, 1), "o");
  EXPECT_EQ(Descriptors("table"), 2);
  EXPECT_EQ(LockSeenAt("table", 2), 'w');
  ASSERT_EQ(table->Release(2, 1), 0);
  EXPECT_EQ(LockSeenAt("table", 2), '-');
  auto third = files.Open(Make("third"), OpenRead);
  EXPECT_EQ(Descriptors(), 1);
}

TEST_F(FileManagerTest, ClosingOneFileKeepsTheLocksOfAnotherOnTheSameFile) {
  auto first = files.Open(Make("table", "data"), OpenRead | OpenWrite);
  ASSERT_EQ(::link(Path("table").c_str(), Path("alias").c_str()), 0);
  auto second = Open("alias", OpenRead | OpenWrite);
  ASSERT_EQ(first->Lock(FileLockType::Exclusive, 0, 10), 0);
  ASSERT_EQ(second->Lock(FileLockType::Exclusive, 5, 10), 0);
  ASSERT_EQ(files.Copy(Path("alias"), Path("copy")), 0);
  second.reset();
  EXPECT_EQ(LockSeenAt("table", 0), 'w');
  EXPECT_EQ(LockSeenAt("table", 9), 'w');
  EXPECT_EQ(LockSeenAt("table", 10), '-');  // only the closed one had that
  ASSERT_EQ(first->Release(0, 10), 0);
  EXPECT_EQ(LockSeenAt("table", 9), '-');
  EXPECT_EQ(Descriptors(), 1);  // the postponed closings have happened
}

TEST_F(FileManagerTest, LocksOfTwoFilesOfOneFileDoNotWeakenEachOther) {
  auto first = files.Open(Make("table", "data"), OpenRead | OpenWrite);
  auto second = Open("table", OpenRead | OpenWrite);
  ASSERT_EQ(first->Lock(FileLockType::Exclusive, 10, 10), 0);
  ASSERT_EQ(second->Lock(FileLockType::Shared, 0, 0), 0);
  EXPECT_EQ(LockSeenAt("table", 5), 'r');
  EXPECT_EQ(LockSeenAt("table", 15), 'w');
  EXPECT_EQ(LockSeenAt("table", 1'000'000), 'r');
  ASSERT_EQ(first->Release(12, 3), 0);
  EXPECT_NE(LockSeenAt("table", 13), '-');  // the second still relies on it
  ASSERT_EQ(second->Release(0, 0), 0);
  EXPECT_EQ(LockSeenAt("table", 5), '-');
  EXPECT_EQ(LockSeenAt("table", 11), 'w');
  EXPECT_EQ(LockSeenAt("table", 13), '-');
  EXPECT_EQ(LockSeenAt("table", 15), 'w');
}

TEST_F(FileManagerTest, WaitingForARecordLockEndsWhenTheHolderOrTheTimeDoes) {
  int ready[2];
  int go[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(go), 0);
  Make("table", "data");
  const pid_t holder = Fork([&] {
    auto file = Open("table", OpenRead | OpenWrite);
    if (file->Lock(FileLockType::Exclusive, 0, 4) != 0) return 1;
    char byte = '!';
    if (::write(ready[1], &byte, 1) != 1 || ::read(go[0], &byte, 1) != 1) return 2;
    ::usleep(30'000);
    return 0;  // ending gives the lock up
  });
  char byte;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  auto file = Open("table", OpenRead | OpenWrite);
  TimeOutSoon();
  EXPECT_EQ(file->Lock(FileLockType::Shared, 3, 1), -1);
  EXPECT_EQ(file->error(), strerror(EINTR));
  EXPECT_EQ(file->Lock(FileLockType::Exclusive, 4, 4), 0);  // not the other's: no waiting

  host.timed_out = false;
  ASSERT_EQ(::write(go[1], "!", 1), 1);
  EXPECT_EQ(file->Lock(FileLockType::Shared, 3, 1), 0);
  EXPECT_EQ(ExitStatus(holder), 0);
  EXPECT_EQ(LockSeenAt("table", 3), 'r');
  for (const int end : {ready[0], ready[1], go[0], go[1]}) ::close(end);
}

TEST_F(FileManagerTest, CopyKeepsBothFilesWhenItCannotBeDone) {
  Make("a", "precious");
  Make("b", "other");
  ::link(Path("a").c_str(), Path("hard").c_str());
  Link("a", "soft");
  for (const char* target : {"a", "hard", "soft", "./a"}) {
    EXPECT_EQ(files.Copy(Path("a"), Path(target)), -1) << target;
    EXPECT_EQ(files.error(), "Source and target are the same file");
  }
  EXPECT_EQ(Content("a"), "precious");
  ASSERT_EQ(files.MakeDirectory(Path("dir/")), 0);
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  for (const char* source : {"missing", "dir", "pipe", "a/b"}) {
    EXPECT_EQ(files.Copy(Path(source), Path("b")), -1) << source;
    EXPECT_EQ(files.Copy(Path(source), Path("new")), -1) << source;
    EXPECT_EQ(Content("b"), "other");
    EXPECT_FALSE(files.Exists(Path("new")));
  }
  EXPECT_EQ(files.Copy(Path("b"), Path("pipe")), -1);
  for (const char* no_file : {"pipe", "../../dev/zero", "../../dev/full"}) {
    EXPECT_EQ(Open(no_file, OpenRead), nullptr) << no_file;
    EXPECT_EQ(files.error(), strerror(EINVAL));
  }
  EXPECT_EQ(Descriptors(), 0);
}

TEST_F(FileManagerTest, CopyThatRunsOutOfRoomOrTimeLeavesNoHalfTarget) {
  Make("a", std::string(50'000, 'x'));
  ASSERT_EQ(files.Copy(Path("a"), Path("full")), 0);
  EXPECT_EQ(Content("full"), Content("a"));
  EXPECT_EQ(files.Mode(Path("full")) & 07777, 0600);

  struct rlimit unlimited;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
  const struct rlimit small = {20'000, unlimited.rlim_max};
  ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(files.Copy(Path("a"), Path("half")), -1);
  EXPECT_EQ(files.error(), strerror(EFBIG));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_FALSE(files.Exists(Path("half")));

  host.timed_out = true;
  EXPECT_EQ(files.Copy(Path("a"), Path("endless")), -1);
  EXPECT_EQ(files.error(), "Timed out while copying");
  EXPECT_FALSE(files.Exists(Path("endless")));
}

TEST_F(FileManagerTest, RenameWithinAndAcrossFileSystems) {
  Make("a", "text");
  EXPECT_EQ(files.Rename(Path("a"), Path("b")), 0);
  EXPECT_EQ(Content("b"), "text");
  EXPECT_EQ(files.Rename(Path("a"), Path("c")), -1);
  EXPECT_EQ(files.error(), strerror(ENOENT));

  struct stat here;
  struct stat memory;
  ASSERT_EQ(::stat(directory().c_str(), &here), 0);
  if (::stat("/dev/shm", &memory) != 0 || memory.st_dev == here.st_dev) {
    GTEST_SKIP() << "no second file system";
  }
  char pattern[] = "/dev/shm/vexa_files_XXXXXX";
  ::close(::mkstemp(pattern));
  EXPECT_EQ(files.Rename(Path("b"), String(pattern)), 0);
  EXPECT_FALSE(files.Exists(Path("b")));
  EXPECT_EQ(files.Rename(String(pattern), Path("back")), 0);
  EXPECT_EQ(Content("back"), "text");
  EXPECT_FALSE(files.Exists(String(pattern)));
  EXPECT_EQ(files.Rename(Path("back"), "/dev/shm/no such directory/x"), -1);
  EXPECT_EQ(Content("back"), "text");
}

TEST_F(FileManagerTest, TemporaryNamesTakeTheLowestFreeNumber) {
  host.settings.maxfiles = 1;
  Make("t00000001");
  Make("t00000002");
  Make("t0000000B");
  std::vector<std::unique_ptr<File>> open;
  for (int i = 3; i <= 12; ++i) {
    if (i == 11) continue;
    String path = Path("t");
    String suffix = "s";
    open.push_back(files.MakeTemporary(path, suffix, OpenRead | OpenWrite | OpenTruncate));
    ASSERT_NE(open.back(), nullptr);
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08X", static_cast<unsigned>(i));
    EXPECT_EQ(path, Path(std::string("t") + digits));
    EXPECT_EQ(suffix, std::string("s") + digits);
    ASSERT_EQ(open.back()->Write("x", 1), 1);
  }
  EXPECT_EQ(Descriptors(), 1);
  EXPECT_EQ(open[0]->Write("y", 1), 1);  // reopening does not empty it
  EXPECT_EQ(Content("t00000003"), "xy");
  EXPECT_EQ(files.Mode(Path("t00000003")) & 07777, 0600);
  String path = Path("missing/t");
  String suffix = "s";
  EXPECT_EQ(files.MakeTemporary(path, suffix, OpenWrite), nullptr);
  EXPECT_EQ(files.error(), strerror(ENOENT));
  EXPECT_EQ(path, Path("missing/t"));
  EXPECT_EQ(suffix, "s");
}

TEST_F(FileManagerTest, NewFilesTakeNobodysPlace) {
  EXPECT_EQ(files.WriteNew(Path("new"), "content"), 0);
  EXPECT_EQ(Content("new"), "content");
  EXPECT_EQ(files.Mode(Path("new")) & 07777, 0600);
  ASSERT_EQ(files.MakeSymbolicLink("target", Path("link")), 0);
  EXPECT_EQ(files.WriteNew(Path("new"), "other"), 1);
  EXPECT_EQ(files.WriteNew(Path("link"), "other"), 1);
  EXPECT_EQ(files.WriteNew(Path("none/new"), "other"), -1);
  EXPECT_EQ(Content("new"), "content");
  EXPECT_FALSE(files.Exists(Path("target")));
}

TEST_F(FileManagerTest, OpenModesAndRefusedOperations) {
  EXPECT_EQ(Open("a", OpenRead), nullptr);
  EXPECT_EQ(files.error(), strerror(ENOENT));
  auto file = Open("a", OpenWrite | OpenCreate | OpenExclusive);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(files.Mode(Path("a")) & 07777, 0600);
  EXPECT_EQ(Open("a", OpenWrite | OpenCreate | OpenExclusive), nullptr);
  EXPECT_EQ(files.error(), strerror(EEXIST));
  EXPECT_EQ(Next(*file, 1), "error");
  EXPECT_EQ(file->error(), strerror(EBADF));
  EXPECT_EQ(file->Seek(-1), -1);
  EXPECT_EQ(file->Lock(FileLockType::Exclusive, -1, 1), -1);
  EXPECT_EQ(file->error(), strerror(EINVAL));
  EXPECT_EQ(file->Write("x", -1), -1);
  EXPECT_EQ(Open(std::string(300, 'n'), OpenWrite | OpenCreate), nullptr);
  EXPECT_EQ(files.error(), strerror(ENAMETOOLONG));
}

TEST_F(FileManagerTest, NulInANameIsNeverCutOff) {
  Make("a", "precious");
  const String bad = Path(std::string_view("a\0.txt", 6));
  std::vector<String> names;
  String path = bad;
  String suffix;
  EXPECT_EQ(files.Open(bad, OpenRead), nullptr);
  EXPECT_EQ(files.error(), "File name contains a NUL character");
  EXPECT_EQ(files.MakeTemporary(path, suffix, OpenWrite), nullptr);
  for (const int64_t result : std::initializer_list<int64_t>{
           files.Delete(bad), files.Rename(bad, Path("b")), files.Rename(Path("a"), bad),
           files.Copy(bad, Path("b")), files.Lock(bad), files.ChangeMode(bad, 0), files.Mode(bad),
           files.Length(bad), files.MakeDirectory(Path(std::string_view("d\0x", 3))),
           files.MakeSymbolicLink(bad, Path("l")), files.ListDirectory(bad, names)}) {
    EXPECT_EQ(result, -1);
  }
  EXPECT_EQ(files.TouchFile(bad), 0);
  EXPECT_FALSE(files.Exists(bad));
  EXPECT_EQ(files.GetOwnerUID(bad), static_cast<uid_t>(-1));
  EXPECT_EQ(files.FollowPath(path, 1, 1), 3);
  EXPECT_EQ(Content("a"), "precious");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory()), {}), 1);
}

TEST_F(FileManagerTest, FilesFailCleanlyOnceTheirManagerIsGone) {
  auto manager = std::make_unique<UNIXFileManager>(host);
  auto file = manager->Open(Make("a", "x"), OpenRead);
  auto locked = manager->Open(Path("a"), OpenRead | OpenWrite);
  ASSERT_EQ(locked->Lock(FileLockType::Exclusive, 0, 0), 0);
  auto closed = manager->Open(Path("a"), OpenRead);
  closed.reset();
  EXPECT_EQ(Descriptors("a"), 3);
  manager.reset();
  EXPECT_EQ(Descriptors("a"), 0);
}

}  // namespace

}  // namespace vexa
