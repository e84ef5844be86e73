#include <rkutils/internal/unique_file.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

using rkutils::internal::UniqueFile;

TEST(UniqueFile, ClosesItsStream) {
  const auto before = support::open_descriptors();
  {
    const UniqueFile file(std::fopen("/dev/null", "re"));
    ASSERT_NE(file, nullptr);
    EXPECT_NE(support::open_descriptors(), before);
  }
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST(UniqueFile, KeepsErrnoWhenItCannotClose) {
  {
    const UniqueFile file(std::fopen("/dev/null", "re"));
    ::close(::fileno(file.get()));
    errno = EIO;
  }
  EXPECT_EQ(errno, EIO);
}

TEST(UniqueFile, WritesWhatIsBufferedWhenItCloses) {
  { std::fputs("text", UniqueFile(std::fopen("/tmp/written", "we")).get()); }
  const UniqueFile file(std::fopen("/tmp/written", "re"));
  char text[8] = {};
  EXPECT_EQ(std::fread(text, 1, sizeof text, file.get()), 4U);
  EXPECT_STREQ(text, "text");
}

}  // namespace
