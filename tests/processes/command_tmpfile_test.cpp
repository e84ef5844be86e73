#include <rkutils/command.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "command_fixture.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"

namespace {

namespace fs = std::filesystem;

using testing::MatchesRegex;

constexpr std::size_t kSize = 1024;
constexpr const char* kTemplate = "/tmp/tmpfile-test/file.XXXXXX";

class CreateTmpfile : public testing::Test {
 protected:
  CreateTmpfile() {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
    before_ = support::open_descriptors();
  }
  ~CreateTmpfile() override { fs::remove_all(kFolder); }
  void TearDown() override { EXPECT_EQ(support::open_descriptors(), before_); }

  // The number of files there are.
  static auto files() {
    return std::distance(fs::directory_iterator(kFolder), fs::directory_iterator());
  }

  // A path of this length, in folders that exist, which ends with X's.
  static std::string path_of_length(std::size_t length) {
    std::string path = kFolder;
    while (length - path.size() > 200) path += "/" + std::string(150, 'd');
    fs::create_directories(path);
    return path + "/" + std::string(length - path.size() - 7, 'f') + "XXXXXX";
  }

  static constexpr const char* kFolder = "/tmp/tmpfile-test";

 private:
  std::map<int, std::string> before_;
};

TEST_F(CreateTmpfile, CreatesAnEmptyFileForItsOwnerAlone) {
  const char* const name = create_tmpfile(kTemplate);
  ASSERT_NE(name, nullptr);
  EXPECT_THAT(name, MatchesRegex("/tmp/tmpfile-test/file\\.[A-Za-z0-9]{6}"));
  struct stat status = {};
  ASSERT_EQ(::stat(name, &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(CreateTmpfile, TheNextCallOverwritesTheName) {
  char* const first = create_tmpfile(kTemplate);
  const std::string first_name = first;
  char* const second = create_tmpfile("/tmp/tmpfile-test/XXXXXX");
  EXPECT_EQ(second, first);
  EXPECT_NE(second, first_name);
  EXPECT_EQ(files(), 2);
  // Nothing of the longer name is left.
  EXPECT_EQ(std::string(second, kSize).find_last_not_of('\0'), std::string(second).size() - 1);
}

TEST_F(CreateTmpfile, TakesANameOf1023Bytes) {
  const std::string path = path_of_length(kSize - 1);
  const char* const name = create_tmpfile(path.c_str());
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name).size(), kSize - 1);
  EXPECT_EQ(std::string(name).substr(0, kSize - 7), path.substr(0, kSize - 7));
  EXPECT_TRUE(fs::exists(name));
}

TEST_F(CreateTmpfile, RefusesALongerOneAndChangesNothing) {
  const std::string path = path_of_length(kSize);
  const std::string cut = path.substr(0, kSize - 1);
  support::put(cut, "");
  const char* const earlier = create_tmpfile(kTemplate);
  const std::string earlier_name = earlier;
  EXPECT_EQ(create_tmpfile(path.c_str()), nullptr);
  EXPECT_EQ(earlier, earlier_name);
  EXPECT_TRUE(fs::exists(cut));
  EXPECT_TRUE(fs::exists(earlier_name));
}

TEST_F(CreateTmpfile, RefusesNoTemplateAndChangesNothing) {
  const char* const earlier = create_tmpfile(kTemplate);
  const std::string earlier_name = earlier;
  EXPECT_EQ(create_tmpfile(nullptr), nullptr);
  EXPECT_EQ(create_tmpfile(""), nullptr);
  EXPECT_EQ(earlier, earlier_name);
}

TEST_F(CreateTmpfile, FailsInAMissingFolder) {
  EXPECT_EQ(create_tmpfile("/tmp/tmpfile-test/missing/XXXXXX"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(CreateTmpfile, FailsOnAFullDisk) {
  // One for the folder itself, one for a file.
  ASSERT_EQ(::mount("tmpfs", kFolder, "tmpfs", 0, "nr_inodes=2"), 0);
  const bool fits = create_tmpfile(kTemplate) != nullptr;
  const char* const name = create_tmpfile(kTemplate);
  const int error = errno;
  const auto count = files();
  ::umount2(kFolder, MNT_DETACH);
  EXPECT_TRUE(fits);
  EXPECT_EQ(name, nullptr);
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(count, 1);
}

TEST_F(CreateTmpfile, FailsWithoutDescriptors) {
  const support::NoMoreDescriptors none;
  EXPECT_EQ(create_tmpfile(kTemplate), nullptr);
  EXPECT_EQ(errno, EMFILE);
}

TEST_F(CreateTmpfile, IsNotDisturbedBySignals) {
  const char* name = nullptr;
  support::run_with_failing_calls({{support::SystemCall::kOpen, EINTR, 0, 3}},
                                  [&] { name = create_tmpfile(kTemplate); });
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(fs::exists(name));
}

TEST_F(CreateTmpfile, IsFinishedByACancelledThread) {
  const char* name = nullptr;
  EXPECT_TRUE(finishes_though_cancelled([&] { name = create_tmpfile(kTemplate); }));
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(fs::exists(name));
}

TEST_F(CreateTmpfile, ATemplateWithoutItsXsRemovesTheFileOfThatName) {
  support::put("/tmp/tmpfile-test/kept", "");
  support::put("/tmp/tmpfile-test/named", "");
  EXPECT_EQ(create_tmpfile("/tmp/tmpfile-test/named"), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(fs::exists("/tmp/tmpfile-test/named"));
  EXPECT_TRUE(fs::exists("/tmp/tmpfile-test/kept"));
}

TEST_F(CreateTmpfile, AnEarlierResultIsAnEmptyTemplateAndItsFileStays) {
  char* const name = create_tmpfile(kTemplate);
  const std::string earlier = name;
  EXPECT_EQ(create_tmpfile(name), nullptr);
  EXPECT_TRUE(fs::exists(earlier));
}

}  // namespace
