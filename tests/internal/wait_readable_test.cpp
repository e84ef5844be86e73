#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/wait_readable.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using rkutils::internal::Deadline;
using rkutils::internal::UniqueFd;
using rkutils::internal::wait_readable;
using rkutils::internal::wait_writable;
using support::Stopwatch;

class WaitReadable : public testing::Test {
 protected:
  WaitReadable() {
    std::array<int, 2> ends = {-1, -1};
    EXPECT_EQ(::pipe(ends.data()), 0);
    reader_.reset(ends[0]);
    writer_.reset(ends[1]);
  }

  UniqueFd reader_;
  UniqueFd writer_;
};

TEST_F(WaitReadable, SucceedsAtOnceWhenThereIsSomething) {
  ASSERT_EQ(::write(writer_.get(), "x", 1), 1);
  const Stopwatch watch;
  EXPECT_TRUE(wait_readable(reader_.get(), 5000));
  EXPECT_LT(watch.elapsed(), 4s);
}

TEST_F(WaitReadable, CountsTheEndOfFileAsReadable) {
  writer_.reset();
  EXPECT_TRUE(wait_readable(reader_.get(), 0));
}

TEST_F(WaitReadable, GivesUpWhenTheTimeIsOver) {
  const Stopwatch watch;
  EXPECT_FALSE(wait_readable(reader_.get(), 200));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_GE(watch.elapsed(), 200ms);
}

TEST_F(WaitReadable, OnlyLooksWithNoTime) {
  EXPECT_FALSE(wait_readable(reader_.get(), 0));
  ASSERT_EQ(::write(writer_.get(), "x", 1), 1);
  EXPECT_TRUE(wait_readable(reader_.get(), 0));
}

TEST_F(WaitReadable, OnlyLooksWithLessThanNoTime) {
  EXPECT_FALSE(wait_readable(reader_.get(), -1));
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(WaitReadable, FailsForADescriptorThatIsNotOpen) {
  const int closed = reader_.get();
  reader_.reset();
  EXPECT_FALSE(wait_readable(closed, 5000));
  EXPECT_EQ(errno, EBADF);
}

TEST_F(WaitReadable, WaitsItsWholeTimeThroughSignals) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every_50_ms = {{0, 50000}, {0, 50000}};
  ::setitimer(ITIMER_REAL, &every_50_ms, nullptr);
  const Stopwatch watch;
  EXPECT_FALSE(wait_readable(reader_.get(), 400));
  const auto elapsed = watch.elapsed();
  const itimerval off = {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  EXPECT_GE(elapsed, 400ms);
  EXPECT_LT(elapsed, 3s);
}

TEST_F(WaitReadable, GivesSeveralWaitsOneDeadline) {
  const Deadline deadline(300);
  const Stopwatch watch;
  EXPECT_FALSE(wait_readable(reader_.get(), deadline));
  EXPECT_GE(watch.elapsed(), 300ms);
  EXPECT_FALSE(wait_readable(reader_.get(), deadline));
  EXPECT_LT(watch.elapsed(), 550ms);
}

class WaitWritable : public WaitReadable {
 protected:
  void fill() {
    ::fcntl(writer_.get(), F_SETFL, O_NONBLOCK);
    const std::array<char, 4096> page = {};
    while (::write(writer_.get(), page.data(), page.size()) > 0) {
    }
  }
};

TEST_F(WaitWritable, SucceedsAtOnceWhereThereIsRoom) {
  const Stopwatch watch;
  EXPECT_TRUE(wait_writable(writer_.get(), Deadline(5000)));
  EXPECT_LT(watch.elapsed(), 4s);
}

TEST_F(WaitWritable, GivesUpWhenTheTimeIsOver) {
  fill();
  const Stopwatch watch;
  EXPECT_FALSE(wait_writable(writer_.get(), Deadline(200)));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_GE(watch.elapsed(), 200ms);
}

TEST_F(WaitWritable, CountsAPeerThatIsGoneAsWritable) {
  fill();
  reader_.reset();
  EXPECT_TRUE(wait_writable(writer_.get(), Deadline(0)));
}

TEST_F(WaitWritable, FailsForADescriptorThatIsNotOpen) {
  const int closed = writer_.get();
  writer_.reset();
  EXPECT_FALSE(wait_writable(closed, Deadline(5000)));
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
