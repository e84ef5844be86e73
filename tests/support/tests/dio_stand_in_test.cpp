// The stand-in answers as the driver does, to bare system calls and without the library.

#include "support/dio_stand_in.h"

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/kernel_folder.h"
#include "support/put_file.h"

namespace {

namespace fs = std::filesystem;

using rkutils::internal::UniqueFd;
using support::DioOperation;
using testing::ElementsAre;

const std::string kFolder = "/sys/devices/halcyonix/";

// The outcome of a call: what it returned, and errno where that is negative.
struct Outcome {
  ssize_t result;
  int error;

  friend bool operator==(const Outcome& a, const Outcome& b) {
    return a.result == b.result && a.error == b.error;
  }
  friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.result << " (" << outcome.error << ")";
  }
};

Outcome outcome_of(ssize_t result) { return {result, result < 0 ? errno : 0}; }

UniqueFd open(const std::string& path, int flags) {
  return UniqueFd(::open((kFolder + path).c_str(), flags | O_CLOEXEC));
}

Outcome write(const std::string& path, const std::string& bytes) {
  const UniqueFd file = open(path, O_WRONLY);
  return outcome_of(file ? ::write(file.get(), bytes.data(), bytes.size()) : -1);
}

std::string read(const std::string& path) {
  const UniqueFd file = open(path, O_RDONLY);
  std::array<char, 100> buffer;
  const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
  return length < 0 ? "failed" : std::string(buffer.data(), static_cast<std::size_t>(length));
}

std::set<std::string> names_in(const std::string& folder) {
  std::set<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

class DioStandIn : public testing::Test {
 protected:
  void SetUp() override {
    try {
      driver_.emplace(2, 1);
    } catch (const support::StandInRefused& refusal) {
      GTEST_SKIP() << refusal.what();
    }
  }

  support::DioStandIn& driver() { return *driver_; }

 private:
  std::optional<support::DioStandIn> driver_;
};

TEST_F(DioStandIn, HasFoldersWithFiles) {
  EXPECT_THAT(names_in(kFolder), ElementsAre("din1", "din2", "dout1"));
  EXPECT_THAT(names_in(kFolder + "din1"), ElementsAre("frequency", "value"));
  EXPECT_THAT(names_in(kFolder + "dout1"), ElementsAre("value"));
  EXPECT_TRUE(fs::is_directory(kFolder + "din1"));
  EXPECT_TRUE(fs::is_regular_file(kFolder + "din1/value"));
  EXPECT_FALSE(fs::exists(kFolder + "din3"));
}

TEST_F(DioStandIn, ListsMoreThanFitsIntoOneAnswer) {
  for (int i = 0; i < 200; ++i) driver().add("din" + std::to_string(100 + i));
  EXPECT_EQ(names_in(kFolder).size(), 203U);
}

TEST_F(DioStandIn, TakesZerosAndOnesForOutputs) {
  EXPECT_EQ(read("dout1/value"), "0");
  EXPECT_EQ(write("dout1/value", "1"), (Outcome{1, 0}));
  EXPECT_EQ(read("dout1/value"), "1");
  EXPECT_EQ(write("dout1/value", "2"), (Outcome{-1, EINVAL}));
  EXPECT_EQ(write("dout1/value", "00"), (Outcome{-1, EINVAL}));
  EXPECT_EQ(read("dout1/value"), "1");
  EXPECT_EQ(write("din1/value", "1"), (Outcome{-1, EINVAL}));
}

TEST_F(DioStandIn, MeasuresFrequencies) {
  driver().set_measured(1, "1 2 3\n");
  EXPECT_EQ(read("din1/frequency"), "0 0 0\n");
  EXPECT_EQ(write("din1/frequency", "-1"), (Outcome{2, 0}));
  EXPECT_EQ(write("din1/frequency", "0"), (Outcome{-1, ENOENT}));
  EXPECT_EQ(write("din1/frequency", "1"), (Outcome{1, 0}));
  EXPECT_EQ(read("din1/frequency"), "1 2 3\n");
  EXPECT_EQ(write("din1/frequency", "-1"), (Outcome{-1, EEXIST}));
  EXPECT_EQ(write("din1/frequency", "1"), (Outcome{-1, EEXIST}));
  EXPECT_EQ(write("din2/frequency", "-1"), (Outcome{2, 0}));
  EXPECT_EQ(write("din1/frequency", "0"), (Outcome{1, 0}));
  EXPECT_EQ(read("din1/frequency"), "0 0 0\n");
  EXPECT_EQ(write("din1/frequency", "on"), (Outcome{-1, EINVAL}));
}

TEST_F(DioStandIn, ReadsFromWhereTheReaderStands) {
  driver().set_contents("din1/value", "abcdef");
  const UniqueFd file = open("din1/value", O_RDONLY);
  std::array<char, 4> buffer = {};
  EXPECT_EQ(::read(file.get(), buffer.data(), buffer.size()), 4);
  EXPECT_THAT(buffer, ElementsAre('a', 'b', 'c', 'd'));
  EXPECT_EQ(::read(file.get(), buffer.data(), buffer.size()), 2);
  EXPECT_EQ(::read(file.get(), buffer.data(), buffer.size()), 0);
}

TEST_F(DioStandIn, HasFilesAndFoldersAsItIsTold) {
  driver().command("file din9");
  driver().command("remove din2");
  driver().command("mode din1 500");
  EXPECT_THAT(names_in(kFolder), ElementsAre("din1", "din9", "dout1"));
  struct stat status = {};
  ASSERT_EQ(::stat((kFolder + "din1").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFDIR | 0500U);
  ASSERT_EQ(::stat((kFolder + "din9").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0755U);
  driver().add("din9");  // a folder where a file was
  EXPECT_EQ(read("din9/value"), "0");
}

TEST_F(DioStandIn, RecordsWhatItIsAskedToDo) {
  EXPECT_EQ(write("dout1/value", "1"), (Outcome{1, 0}));
  EXPECT_EQ(write("dout1/value", "\n"), (Outcome{-1, EINVAL}));
  EXPECT_EQ(read("dout1/value"), "1");
  EXPECT_THAT(
      driver().take_operations(),
      ElementsAre(
          DioOperation{"open", "dout1/value", "w"}, DioOperation{"write", "dout1/value", "1"},
          DioOperation{"close", "dout1/value", ""}, DioOperation{"open", "dout1/value", "w"},
          DioOperation{"write", "dout1/value", "\n", EINVAL},
          DioOperation{"close", "dout1/value", ""}, DioOperation{"open", "dout1/value", "r"},
          DioOperation{"read", "dout1/value", "1"}, DioOperation{"close", "dout1/value", ""}));
  names_in(kFolder);
  EXPECT_THAT(driver().take_operations(), ElementsAre(DioOperation{"opendir", ".", ""}));
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioStandIn, FailsAfterSomeOperationsAndForSomeTimes) {
  driver().fail("write", "dout1/value", EIO, 1, 2);
  EXPECT_EQ(write("dout1/value", "1"), (Outcome{1, 0}));
  EXPECT_EQ(write("dout1/value", "0"), (Outcome{-1, EIO}));
  EXPECT_EQ(write("dout1/value", "0"), (Outcome{-1, EIO}));
  EXPECT_EQ(read("dout1/value"), "1");
  EXPECT_EQ(write("dout1/value", "0"), (Outcome{1, 0}));
  driver().fail("open", "dout1/value", EBUSY);
  EXPECT_EQ(write("dout1/value", "1"), (Outcome{-1, EBUSY}));
  driver().fail("close", "dout1/value", EDQUOT);
  UniqueFd file = open("dout1/value", O_RDONLY);
  EXPECT_EQ(outcome_of(::close(file.release())), (Outcome{-1, EDQUOT}));
  driver().fail("look", "dout1", EACCES, 0, 1000);  // the kernel asks more than once
  struct stat status = {};
  EXPECT_EQ(outcome_of(::stat((kFolder + "dout1").c_str(), &status)), (Outcome{-1, EACCES}));
}

TEST_F(DioStandIn, TakesLessThanItIsGiven) {
  driver().take_only("din1/frequency", 1);
  EXPECT_EQ(write("din1/frequency", "-1"), (Outcome{1, 0}));
  driver().take_only("din1/frequency", 0);
  EXPECT_EQ(write("din1/frequency", "1"), (Outcome{0, 0}));
  EXPECT_EQ(read("din1/frequency"), "0 0 0\n");
}

TEST_F(DioStandIn, IsDisconnectedWhenItIsKilled) {
  driver().kill();
  EXPECT_EQ(write("dout1/value", "1"), (Outcome{-1, ENOTCONN}));
}

TEST_F(DioStandIn, RefusesWhatItDoesNotKnow) {
  EXPECT_THROW(driver().command("dance"), std::runtime_error);
  EXPECT_THROW(driver().command("fault write dout1/value 0 1 shout 5"), std::runtime_error);
  EXPECT_THROW(driver().command("contents dout7/value \"1\""), std::runtime_error);
}

TEST(DioStandInFolder, GoesWithIt) {
  try {
    const support::DioStandIn driver(1, 0);
    EXPECT_TRUE(fs::exists(kFolder + "din1"));
  } catch (const support::StandInRefused& refusal) {
    GTEST_SKIP() << refusal.what();
  }
  EXPECT_FALSE(fs::exists(kFolder));
}

TEST(DioStandInFolder, IsThatOfTheTestsOwn) {
  const support::KernelFolder sys("/sys");
  sys.make_folder("devices/halcyonix");
  try {
    const support::DioStandIn driver(1, 0);
    EXPECT_TRUE(fs::exists(kFolder + "din1"));
  } catch (const support::StandInRefused& refusal) {
    GTEST_SKIP() << refusal.what();
  }
  EXPECT_TRUE(fs::is_empty(kFolder));
}

TEST(DioStandInFolder, IsRefusedWithoutTheDevice) {
  constexpr char kDevice[] = "/dev/fuse";
  constexpr char kAside[] = "/dev/aside";
  support::put(kAside, "");
  const bool moved = ::mount(kDevice, kAside, nullptr, MS_MOVE, nullptr) == 0;
  fs::remove(kDevice);
  EXPECT_THROW(support::DioStandIn(1, 0), support::StandInRefused);
  EXPECT_FALSE(fs::exists(kFolder));
  if (moved) {
    support::put(kDevice, "");
    EXPECT_EQ(::mount(kAside, kDevice, nullptr, MS_MOVE, nullptr), 0);
  }
  fs::remove(kAside);
}

}  // namespace
