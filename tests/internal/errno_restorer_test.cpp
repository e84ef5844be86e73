#include <rkutils/internal/errno_restorer.h>

#include <gtest/gtest.h>

namespace {

TEST(ErrnoRestorer, PutsErrnoBackAtTheEndOfItsScope) {
  errno = ENOENT;
  {
    const rkutils::internal::ErrnoRestorer keep_errno;
    errno = EIO;
  }
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
