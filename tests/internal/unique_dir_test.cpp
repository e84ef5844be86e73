#include <rkutils/internal/unique_dir.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

using rkutils::internal::UniqueDir;

TEST(UniqueDir, ClosesItsStream) {
  const auto before = support::open_descriptors();
  {
    const UniqueDir folder(::opendir("/tmp"));
    ASSERT_NE(folder, nullptr);
    EXPECT_NE(support::open_descriptors(), before);
  }
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST(UniqueDir, KeepsErrnoWhenItCannotClose) {
  {
    const UniqueDir folder(::opendir("/tmp"));
    ::close(::dirfd(folder.get()));
    errno = EIO;
  }
  EXPECT_EQ(errno, EIO);
}

TEST(UniqueDir, HoldsNothingForAFolderThatIsNotThere) {
  const UniqueDir folder(::opendir("/tmp/missing"));
  EXPECT_EQ(folder, nullptr);
}

}  // namespace
