// Commands and the lines that they write.

#include <rkutils/foundations/file/command_lines.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include "file_fixture.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/open_descriptors.h"

namespace {

using rkutils::file::CommandLines;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> pieces_of(CommandLines& lines) {
  std::vector<std::string> pieces;
  while (const char* const piece = lines->next()) pieces.emplace_back(piece);
  return pieces;
}

using CommandLinesTest = FileTest;

TEST_F(CommandLinesTest, AreWhatTheCommandWrites) {
  CommandLines lines("echo one; echo two; printf three", 1023);
  ASSERT_TRUE(lines);
  EXPECT_THAT(pieces_of(lines), ElementsAre("one\n", "two\n", "three"));
  EXPECT_EQ(lines.finish(), 0);
}

TEST_F(CommandLinesTest, ComeInPieces) {
  CommandLines lines("echo abcdef; echo g", 4);
  EXPECT_THAT(pieces_of(lines), ElementsAre("abcd", "ef\n", "g\n"));
}

TEST_F(CommandLinesTest, MayBeNone) {
  CommandLines lines("exit 3", 1023);
  ASSERT_TRUE(lines);
  EXPECT_THAT(pieces_of(lines), IsEmpty());
  EXPECT_EQ(WEXITSTATUS(lines.finish()), 3);
  EXPECT_EQ(lines.finish(), -1);
}

TEST_F(CommandLinesTest, AreWaitedForToTheCommandsEnd) {
  { const CommandLines lines(("exec > /dev/null; sleep 0.2; : > " + at("ended")).c_str(), 1023); }
  EXPECT_TRUE(std::filesystem::exists(at("ended")));
}

TEST_F(CommandLinesTest, NeedNotBeRead) {
  CommandLines lines("echo one; while echo more; do :; done", 1023);
  EXPECT_STREQ(lines->next(), "one\n");
  const int status = lines.finish();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

TEST_F(CommandLinesTest, AreNoneWithoutAProcess) {
  bool started = true;
  int status = 0;
  support::run_with_failing_calls({{support::SystemCall::kFork, EAGAIN}}, [&] {
    CommandLines lines("echo one", 1023);
    started = static_cast<bool>(lines);
    status = lines.finish();
  });
  EXPECT_FALSE(started);
  EXPECT_EQ(status, -1);
}

TEST_F(CommandLinesTest, NeedDescriptors) {
  unsigned started = 0;
  std::vector<std::string> pieces;
  for (unsigned spare = 0; spare < 5; ++spare) {
    const support::NoMoreDescriptors none(spare);
    CommandLines lines("echo one", 1023);
    if (!lines) continue;
    ++started;
    pieces = pieces_of(lines);
  }
  EXPECT_THAT(pieces, ElementsAre("one\n"));
#ifdef __GLIBC__
  EXPECT_EQ(started, 3U);  // it takes two
#else
  EXPECT_EQ(started, 1U);  // and two more for a moment, to learn whether the shell was started
#endif
}

TEST_F(CommandLinesTest, AreForNoOtherProgram) {
  const std::map<int, std::string> before = support::open_descriptors();
  CommandLines lines("echo one", 1023);
  int added = 0;
  for (const auto& [descriptor, target] : support::open_descriptors()) {
    if (before.count(descriptor) != 0) continue;
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC) << target;
    ++added;
  }
  EXPECT_EQ(added, 2);
  lines.finish();
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST_F(CommandLinesTest, HaveNoStatusWhereSigchldIsIgnored) {
  EXPECT_EQ(support::in_child([] {
              ::signal(SIGCHLD, SIG_IGN);
              CommandLines lines("echo one", 1023);
              const std::string line = lines->next();
              return line + std::to_string(lines.finish());
            }),
            "one\n-1");
}

TEST_F(CommandLinesTest, LoseNothingToSignals) {
  const Interruption interruption;
  std::vector<std::string> pieces;
  std::thread reader([&] {
    CommandLines lines("printf on; sleep 0.3; echo e", 1023);
    pieces = pieces_of(lines);
  });
  Interruption::send(reader);
  reader.join();
  EXPECT_THAT(pieces, ElementsAre("one\n"));
}

// For that, and for its end, a thread that is cancelled waits.
TEST_F(CommandLinesTest, AreReadByACancelledThread) {
  std::string text;
  std::thread thread([&] {
    ::pthread_cancel(::pthread_self());
    {
      CommandLines lines("sleep 0.1; echo one", 1023);
      text = lines->next();
      lines.finish();
      text += "end";
    }
    // Nor is it cancelled later: it is a thread of C++.
    int state = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  });
  thread.join();
  EXPECT_EQ(text, "one\nend");
}

}  // namespace
