// Processes that are stopped again and again.

#include "support/stepped_process.h"

#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using support::SteppedProcess;

// Makes the folders "/tmp/stepped-0" and "/tmp/stepped-1".
constexpr const char* kFolders[] = {"/tmp/stepped-0", "/tmp/stepped-1"};
int make_folders() {
  for (const char* folder : kFolders) {
    if (::mkdir(folder, 0700) != 0) return 1;
  }
  return 7;
}

bool exists(const char* path) { return ::access(path, F_OK) == 0; }

class Stepped : public testing::Test {
 protected:
  ~Stepped() override {
    for (const char* folder : kFolders) ::rmdir(folder);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
  }
};

TEST_F(Stepped, StopsBeforeAndAfterEachCall) {
  SteppedProcess process(make_folders);
  int stops = 0;
  int seen = 0;
  while (process.go_on()) {
    ++stops;
    const bool first = exists(kFolders[0]);
    const bool second = exists(kFolders[1]);
    EXPECT_TRUE(first || !second);
    seen |= 1 << (static_cast<int>(first) + static_cast<int>(second));
  }
  EXPECT_EQ(seen, 7) << "none, one and both";
  EXPECT_GE(stops, 5) << "two folders, and the end, from which there is no return";
  EXPECT_EQ(process.status(), 7);
}

TEST_F(Stepped, DoesNotMakeTheCallBeforeWhichItIsKilled) {
  for (int stop = 1; !exists(kFolders[0]); ++stop) {
    ASSERT_LT(stop, 100);
    SteppedProcess process(make_folders);
    EXPECT_TRUE(process.go_on(stop));
    const bool there = exists(kFolders[0]);
    process.kill();
    EXPECT_EQ(exists(kFolders[0]), there);
  }
}

TEST_F(Stepped, FollowsTheChild) {
  SteppedProcess process([] {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(make_folders());
    return support::status_at_end(child);
  });
  const pid_t first = process.id();
  EXPECT_EQ(process.follow_its_child(), first);
  EXPECT_NE(process.id(), first);
  EXPECT_TRUE(process.go_on());
  EXPECT_FALSE(exists(kFolders[1]));
  process.kill();
  EXPECT_EQ(support::status_at_end(first), 128 + SIGKILL);
}

TEST_F(Stepped, ThrowsWithoutAChild) {
  SteppedProcess process([] { return 0; });
  EXPECT_THROW(process.follow_its_child(), std::runtime_error);
}

TEST_F(Stepped, GoesOnByInstructions) {
  if (!SteppedProcess::has_instructions()) GTEST_SKIP() << "not with this kernel and processor";
  SteppedProcess process(make_folders);
  int instructions = 0;
  while (!exists(kFolders[0])) {
    ASSERT_TRUE(process.go_on_by_instructions(1));
    ++instructions;
  }
  EXPECT_GT(instructions, 10);
  EXPECT_FALSE(exists(kFolders[1]));
}

}  // namespace
