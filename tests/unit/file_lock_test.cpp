// The named lock between real processes: exclusion, dead holders, other hosts, waiting.

#include <sys/file.h>

#include <string>
#include <vector>

#include "file_fixture.h"

namespace vexa {

namespace {

class FileLockTest : public FileFixture {
 protected:
  // A process number that nobody has.
  static std::string DeadProcess() {
    const pid_t child = Fork([] { return 0; });
    ExitStatus(child);
    return std::to_string(child);
  }
  // The directory's entries besides the lock.
  [[nodiscard]] int Leftovers() const {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory())) {
      if (entry.path().filename() != "x.lck") ++count;
    }
    return count;
  }
  [[nodiscard]] bool HeldByUs() const {
    const std::string content = Content("x.lck");
    return content.starts_with(std::to_string(::getpid()) + " ") && content.ends_with(":here");
  }

  String lock_ = Path("x.lck");
};

TEST_F(FileLockTest, MeetingOneStaleLockTogetherHarmsNobody) {
  const std::string stale = DeadProcess() + ":here";
  for (int round = 0; round < 40; ++round) {
    Make("x.lck", stale);
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
      children.push_back(Fork([&] {
        char byte;
        ::close(start[1]);
        if (::read(start[0], &byte, 1) != 0 || files.Lock(lock_) != 1) return 1;
        for (int look = 0; look < 5; ++look) {
          if (!HeldByUs()) return 2;
          ::usleep(100);
        }
        return files.Delete(lock_) == 0 ? 0 : 3;
      }));
    }
    ::close(start[0]);
    ::close(start[1]);  // lets all of them go at once
    for (const pid_t child : children) ASSERT_EQ(ExitStatus(child), 0) << "round " << round;
  }
}

TEST_F(FileLockTest, StaleLockThatAnotherIsRemovingIsLeftToIt) {
  Make("x.lck", "1:elsewhere");
  SetAge(lock_, 1000);
  const int fd = ::open(lock_.c_str(), O_RDONLY);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  TimeOutSoon();
  EXPECT_EQ(files.Lock(lock_), 0);
  EXPECT_EQ(Content("x.lck"), "1:elsewhere");
  ::close(fd);
  host.timed_out = false;
  EXPECT_EQ(files.Lock(lock_), 1);
}

TEST_F(FileLockTest, OwnLockIsADeadlock) {
  ASSERT_EQ(files.Lock(lock_), 1);
  EXPECT_EQ(files.Mode(lock_) & ~0022, S_IFREG | 0644);
  EXPECT_EQ(files.Lock(lock_), -2);
  EXPECT_EQ(files.error(), "Possible deadlock detected");
  EXPECT_TRUE(HeldByUs());
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(FileLockTest, LiveHolderIsWaitedForUntilTheTimeIsUp) {
  // The parent of this process is alive, whatever the age of its lock.
  Make("x.lck", std::to_string(::getppid()) + ":here");
  SetAge(lock_, 100'000);
  TimeOutSoon();
  EXPECT_EQ(files.Lock(lock_), 0);
  EXPECT_EQ(files.error(), "Timed out waiting for lock");
  EXPECT_TRUE(files.Exists(lock_));
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(FileLockTest, LocksOfOtherHostsAndWithoutSenseExpire) {
  for (const std::string& content :
       {std::string("1:elsewhere"), std::string("1:her"), std::string("1:here\n"),
        std::string("12"), std::string(), std::string("0:here"), std::string("-1:here"),
        std::string(2000, 'x')}) {
    SCOPED_TRACE(content);
    Make("x.lck", content);
    SetAge(lock_, 60);
    host.timed_out = false;
    TimeOutSoon();
    EXPECT_EQ(files.Lock(lock_), 0);
    EXPECT_EQ(Content("x.lck"), content);
    TearDown();

    host.timed_out = false;
    SetAge(lock_, 91);
    EXPECT_EQ(files.Lock(lock_), 1);
    EXPECT_TRUE(HeldByUs());
    ASSERT_EQ(files.Delete(lock_), 0);
  }
  host.settings.lockexpiration = 0;
  Make("x.lck", "1:elsewhere");
  SetAge(lock_, 1'000'000);
  TimeOutSoon();
  EXPECT_EQ(files.Lock(lock_), 0);
}

TEST_F(FileLockTest, WhatCanNeverBecomeALockEnds) {
  EXPECT_EQ(files.Lock(Path("missing/x.lck")), -1);
  EXPECT_EQ(files.error(), strerror(ENOENT));
  EXPECT_EQ(files.Lock(Path(std::string(250, 'n'))), -1);
  EXPECT_EQ(files.error(), strerror(ENAMETOOLONG));
  // Things that cannot be read or removed are waited for, not destroyed.
  ASSERT_EQ(::mkdir(lock_.c_str(), 0700), 0);
  SetAge(lock_, 1000);
  TimeOutSoon();
  EXPECT_EQ(files.Lock(lock_), 0);
  EXPECT_TRUE(files.IsDirectory(lock_));
  TearDown();
  ASSERT_EQ(files.RemoveDirectory(lock_), 0);
  ASSERT_EQ(::mkfifo(lock_.c_str(), 0600), 0);
  host.timed_out = false;
  TimeOutSoon();
  EXPECT_EQ(files.Lock(lock_), 0);
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(FileLockTest, NumberGivenToAnotherProcessHoldsNothing) {
  // The parent is alive, but was not started then; nor was this process.
  for (const pid_t pid : {::getppid(), ::getpid()}) {
    Make("x.lck", std::to_string(pid) + " 1:here");
    EXPECT_EQ(files.Lock(lock_), 1);
    EXPECT_TRUE(HeldByUs());
    ASSERT_EQ(files.Delete(lock_), 0);
  }
  // Another host's clock went wrong: its lock is as dead as an old one.
  Make("x.lck", "1:elsewhere");
  SetAge(lock_, -100'000);
  EXPECT_EQ(files.Lock(lock_), 1);
}

TEST_F(FileLockTest, ScratchFileOfAKilledProcessIsNoHindrance) {
  Make("x.lck.here." + std::to_string(::getpid()), "left over");
  EXPECT_EQ(files.Lock(lock_), 1);
  EXPECT_TRUE(HeldByUs());
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace

}  // namespace vexa
