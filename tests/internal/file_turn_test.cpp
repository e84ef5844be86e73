#include <rkutils/internal/file_turn.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/open_descriptors.h"
#include "support/put_file.h"

namespace {

using rkutils::internal::FileTurn;

constexpr const char* kPath = "/tmp/file-turn-test";

class FileTurnTest : public testing::Test {
 protected:
  FileTurnTest() { support::put(kPath, ""); }
  ~FileTurnTest() override { std::filesystem::remove_all(kPath); }

  static bool is_locked() { return FileTurn(kPath, 0).error() == EWOULDBLOCK; }
};

TEST_F(FileTurnTest, LastsAsLongAsTheObject) {
  EXPECT_FALSE(is_locked());
  {
    const FileTurn turn(kPath, 0);
    EXPECT_EQ(turn.error(), 0);
    EXPECT_TRUE(turn.has_file());
    EXPECT_TRUE(is_locked());
  }
  EXPECT_FALSE(is_locked());
}

TEST_F(FileTurnTest, IsAlsoHadOnAFolder) {
  std::filesystem::remove(kPath);
  std::filesystem::create_directory(kPath);
  const FileTurn turn(kPath, 0);
  EXPECT_EQ(turn.error(), 0);
  EXPECT_TRUE(is_locked());
}

TEST_F(FileTurnTest, EndsThoughAChildHasTheDescriptor) {
  pid_t child = -1;
  {
    const FileTurn turn(kPath, 0);
    child = ::fork();
    if (child == 0) {
      ::pause();
      ::_exit(1);
    }
  }
  EXPECT_FALSE(is_locked());
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

// Giving up leaves the other one's.
TEST_F(FileTurnTest, IsNotEndedByWhoDidNotGetIt) {
  const FileTurn turn(kPath, 0);
  EXPECT_TRUE(is_locked());
  EXPECT_TRUE(is_locked());
}

TEST_F(FileTurnTest, IsNotHadOnWhatIsNotThere) {
  const FileTurn turn("/tmp/not-there/file", 0);
  EXPECT_EQ(turn.error(), ENOENT);
  EXPECT_FALSE(turn.has_file());
}

TEST_F(FileTurnTest, IsHadOnAFifoThatNobodyWritesTo) {
  std::filesystem::remove(kPath);
  ASSERT_EQ(::mkfifo(kPath, 0600), 0);
  EXPECT_EQ(FileTurn(kPath, 0).error(), 0);
}

TEST_F(FileTurnTest, LeavesNoDescriptor) {
  const auto before = support::open_descriptors();
  {
    const FileTurn turn(kPath, 0);
    EXPECT_TRUE(is_locked());
  }
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST_F(FileTurnTest, KeepsErrno) {
  errno = 0;
  {
    const FileTurn turn(kPath, 0);
    errno = EDOM;
  }
  EXPECT_EQ(errno, EDOM);
}

}  // namespace
