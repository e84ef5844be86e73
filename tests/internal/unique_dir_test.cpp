#include <rkutils/internal/unique_dir.h>

#include <gtest/gtest.h>

#include "support/open_descriptors.h"

namespace {

using rkutils::internal::UniqueDir;

TEST(UniqueDir, ClosesItsStreamAndKeepsErrno) {
  const auto before = support::open_descriptors();
  {
    const UniqueDir folder(::opendir("/tmp"));
    ASSERT_NE(folder, nullptr);
    EXPECT_NE(support::open_descriptors(), before);
    errno = EIO;
  }
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST(UniqueDir, HoldsNothingForAFolderThatIsNotThere) {
  const UniqueDir folder(::opendir("/tmp/missing"));
  EXPECT_EQ(folder, nullptr);
}

}  // namespace
