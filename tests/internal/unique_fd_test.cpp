#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using rkutils::internal::UniqueFd;

static_assert(!std::is_convertible_v<int, UniqueFd>);
static_assert(!std::is_convertible_v<UniqueFd, int>);
static_assert(!std::is_copy_constructible_v<UniqueFd>);
static_assert(!std::is_copy_assignable_v<UniqueFd>);

int open_null() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(UniqueFd, HoldsNothingByDefault) {
  const UniqueFd none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), -1);
}

TEST(UniqueFd, HoldsNothingOfAFailedOpen) { EXPECT_FALSE(UniqueFd(-1)); }

TEST(UniqueFd, ClosesAtTheEndOfItsScope) {
  const int descriptor = open_null();
  {
    const UniqueFd owner(descriptor);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), descriptor);
  }
  EXPECT_FALSE(is_open(descriptor));
}

TEST(UniqueFd, KeepsErrnoWhenItCloses) {
  {
    const UniqueFd closed_behind_its_back(open_null());
    ::close(closed_behind_its_back.get());
    errno = EIO;
  }
  EXPECT_EQ(errno, EIO);
}

TEST(UniqueFd, ReleasesWithoutClosing) {
  UniqueFd owner(open_null());
  const int descriptor = owner.release();
  EXPECT_FALSE(owner);
  EXPECT_TRUE(is_open(descriptor));
  ::close(descriptor);
}

TEST(UniqueFd, ResetClosesTheOldOne) {
  const int first = open_null();
  const int second = open_null();
  UniqueFd owner(first);
  owner.reset(second);
  EXPECT_FALSE(is_open(first));
  EXPECT_EQ(owner.get(), second);
  owner.reset();
  EXPECT_FALSE(is_open(second));
}

TEST(UniqueFd, MovesItsDescriptor) {
  UniqueFd one(open_null());
  const int descriptor = one.get();
  UniqueFd two(std::move(one));
  EXPECT_EQ(one.get(), -1);  // NOLINT(bugprone-use-after-move): what is left is under test
  EXPECT_EQ(two.get(), descriptor);
  const int old = open_null();
  UniqueFd three(old);
  three = std::move(two);
  EXPECT_FALSE(is_open(old));
  EXPECT_EQ(three.get(), descriptor);
}

TEST(UniqueFd, OwnsDescriptorZero) {
  const UniqueFd saved(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  {
    const UniqueFd zero(STDIN_FILENO);
    EXPECT_TRUE(zero);
  }
  EXPECT_FALSE(is_open(STDIN_FILENO));
  ::dup2(saved.get(), STDIN_FILENO);
}

}  // namespace
