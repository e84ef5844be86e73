#include <rkutils/internal/file_turn.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/stopped_clock.h"

namespace {

using rkutils::internal::FileTurn;
using rkutils::internal::UniqueFd;
using support::StoppedClock;
using testing::ElementsAre;
using testing::IsEmpty;

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

// ---- Waiting ----

// What those who wait have, on a descriptor of its own.
class Waiting {
 public:
  Waiting() { set(F_RDLCK); }
  ~Waiting() { set(F_UNLCK); }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  void set(short type) {
    struct flock lock = {};
    lock.l_type = type;
    EXPECT_EQ(::fcntl(file_.get(), F_OFD_SETLK, &lock), 0);
  }

  const UniqueFd file_{::open(kPath, O_RDONLY | O_CLOEXEC)};
};

bool somebody_waits() {
  const UniqueFd file(::open(kPath, O_RDONLY | O_CLOEXEC));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  EXPECT_EQ(::fcntl(file.get(), F_OFD_GETLK, &lock), 0);
  return lock.l_type == F_RDLCK;
}

TEST_F(FileTurnTest, IsHadAtOnceWhereNobodyWaits) {
  StoppedClock clock;
  const FileTurn turn(kPath, 1000);
  EXPECT_EQ(turn.error(), 0);
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
  EXPECT_FALSE(somebody_waits());
}

TEST_F(FileTurnTest, GivesWayToWhoWaits) {
  const Waiting other;
  StoppedClock clock;
  const FileTurn turn(kPath, 1000);
  EXPECT_EQ(turn.error(), 0);
  EXPECT_THAT(clock.take_pauses_us(), ElementsAre(1000));
}

TEST_F(FileTurnTest, GivesWayToNobodyWhenItMustNotWait) {
  const Waiting other;
  StoppedClock clock;
  EXPECT_EQ(FileTurn(kPath, 0).error(), 0);
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
}

TEST_F(FileTurnTest, ShowsThatItIsWaitedFor) {
  std::optional<FileTurn> other(std::in_place, kPath, 0);
  EXPECT_FALSE(somebody_waits());
  StoppedClock clock;
  std::vector<bool> shown;
  clock.at_pauses([&](int count) {
    shown.push_back(somebody_waits());
    if (count == 3) other.reset();
  });
  const FileTurn turn(kPath, 1000);
  EXPECT_EQ(turn.error(), 0);
  EXPECT_THAT(shown, ElementsAre(true, true, true));
  EXPECT_FALSE(somebody_waits());
}

TEST_F(FileTurnTest, IsNotWaitedForAnyMoreAfterTheTimeLimit) {
  const FileTurn other(kPath, 0);
  StoppedClock clock;
  const FileTurn turn(kPath, 5);
  EXPECT_EQ(turn.error(), EWOULDBLOCK);
  EXPECT_THAT(clock.take_pauses_us(), ElementsAre(1000, 1000, 1000, 1000, 1000));
  EXPECT_FALSE(somebody_waits());
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
