// Running something in a process of its own.

#include "support/in_child.h"

#include <csignal>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using support::in_child;

TEST(InChild, GivesWhatTheActionReturned) {
  EXPECT_EQ(in_child([] { return ""; }), "");
  EXPECT_EQ(in_child([] { return std::string("a\0b", 3); }), std::string("a\0b", 3));
}

TEST(InChild, RunsInAnotherProcess) {
  int here = 1;
  const std::string parent = in_child([&] {
    here = 2;
    return std::to_string(::getppid());
  });
  EXPECT_EQ(parent, std::to_string(::getpid()));
  EXPECT_EQ(here, 1);
}

TEST(InChild, ThrowsWhenTheChildFails) {
  EXPECT_THROW(in_child([]() -> std::string { throw std::logic_error("x"); }), std::runtime_error);
  EXPECT_THROW(in_child([]() -> std::string { ::_exit(3); }), std::runtime_error);
  EXPECT_THROW(in_child([] { return std::to_string(::raise(SIGKILL)); }), std::runtime_error);
}

}  // namespace
