// Values of inputs and outputs.

#include <rkutils/hardware/dio/value.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include <fcntl.h>

#include "dio_fixture.h"
#include "support/failing_calls.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::ElementsAreArray;

// Numbers that programs were built with.
static_assert(DIO_OK == 0 && DIO_ERR_RANGE == 1 && DIO_ERR_NOENT == 2 && DIO_ERR_LEXICAL == 3);
static_assert(DIO_ERR_INACTIVE == 4 && DIO_ERR_ACTIVE == 5 && DIO_ERR_IO == 6);
static_assert(DIORONUMBER_MIN == 1 && DIORONUMBER_MAX == 99 && MAX_DIO_IN_COUNT == 99);
static_assert(DIORWNUMBER_MIN == 1 && DIORWNUMBER_MAX == 99 && MAX_DIO_OUT_COUNT == 99);

constexpr unsigned char kUntouched = 77;

const std::string kOutput1 = std::string(kDriver) + "dout1/value";

// Reading, alike for inputs and outputs.
struct Direction {
  const char* name;
  const char* prefix;
  unsigned (*read)(uint32_t, unsigned char*);
};

class DioValue : public DioTest, public testing::WithParamInterface<Direction> {
 protected:
  // The value that is read; the test fails where it cannot be.
  unsigned char read(uint32_t number) {
    unsigned char value = kUntouched;
    EXPECT_EQ(GetParam().read(number, &value), DIO_OK);
    return value;
  }

  // The result of what fails, which leaves the value as it was.
  unsigned failure(uint32_t number) {
    unsigned char value = kUntouched;
    errno = 12345;
    const unsigned result = GetParam().read(number, &value);
    EXPECT_EQ(value, kUntouched);
    return result;
  }

  std::string file_ = std::string(GetParam().prefix) + "1/value";
  std::string path_ = kDriver + file_;
};

INSTANTIATE_TEST_SUITE_P(Of, DioValue,
                         testing::Values(Direction{"Inputs", "din", dio_roValue},
                                         Direction{"Outputs", "dout", dio_rwValue}),
                         [](const auto& direction) { return std::string(direction.param.name); });

TEST_P(DioValue, IsWhatTheDriverHas) {
  EXPECT_EQ(read(1), 0);
  driver().set_contents(file_, "1");
  EXPECT_EQ(read(1), 1);
  EXPECT_EQ(read(2), 0);
}

TEST_P(DioValue, IsReadFromAFileThatIsOpenedAndClosed) {
  EXPECT_EQ(read(1), 0);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(file_, "r", {{"read", file_, "0"}})));
}

TEST_P(DioValue, IsTheFirstCharacter) {
  for (const auto& [contents, value] :
       {std::pair("1\n", 1), {"0\n", 0}, {"10", 1}, {"01", 0}, {"1x", 1}}) {
    driver().set_contents(file_, contents);
    EXPECT_EQ(read(1), value) << contents;
  }
}

TEST_P(DioValue, IsALexicalErrorForAnyOtherCharacter) {
  for (const std::string& contents :
       {"2"s, "/"s, " 1"s, "\n"s, "x"s, "-1"s, "+1"s, "\xB1"s, "\0"s}) {
    driver().set_contents(file_, contents);
    EXPECT_EQ(failure(1), DIO_ERR_LEXICAL) << contents;
    EXPECT_THAT(log_.take(), ElementsAre(lexical_error(path_)));
  }
}

TEST_P(DioValue, CannotBeReadFromAnEmptyFile) {
  driver().set_contents(file_, "");
  EXPECT_EQ(failure(1), DIO_ERR_IO);
  EXPECT_EQ(errno, 0);
  EXPECT_THAT(log_.take(), ElementsAre(not_read(path_, 0)));
}

TEST_P(DioValue, TellsThatReadingFailed) {
  driver().fail("read", file_, EIO);
  EXPECT_EQ(failure(1), DIO_ERR_IO);
  EXPECT_EQ(errno, EIO);
  EXPECT_THAT(log_.take(), ElementsAre(not_read(path_, EIO)));
}

TEST_P(DioValue, TellsThatThereIsNone) {
  const std::string path = std::string(kDriver) + GetParam().prefix + "4/value";
  EXPECT_EQ(failure(4), DIO_ERR_NOENT);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", path, ENOENT)));
}

TEST_P(DioValue, TellsThatTheFileCannotBeOpened) {
  for (const int error : {EACCES, EBUSY, ENODEV, ENXIO}) {
    driver().fail("open", file_, error);
    EXPECT_EQ(failure(1), DIO_ERR_IO);
    EXPECT_EQ(errno, error);
    EXPECT_THAT(log_.take(), ElementsAre(failed("open", path_, error)));
  }
}

TEST_P(DioValue, FailsWithoutADescriptor) {
  unsigned char value = kUntouched;
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(GetParam().read(1, &value), DIO_ERR_IO);
    EXPECT_EQ(errno, EMFILE);
  }
  EXPECT_EQ(value, kUntouched);
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", path_, EMFILE)));
}

TEST_P(DioValue, FailsWithADriverThatIsGone) {
  driver().kill();
  EXPECT_EQ(failure(1), DIO_ERR_IO);
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", path_, ENOTCONN)));
}

TEST_P(DioValue, OfANumberThatIsNoneIsOutOfRange) {
  EXPECT_EQ(failure(0), DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(), ElementsAre(out_of_range("0")));
  EXPECT_EQ(failure(100), DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(), ElementsAre(out_of_range("100")));
  EXPECT_EQ(failure(UINT32_MAX), DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(), ElementsAre(out_of_range("4294967295")));
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_P(DioValue, OfTheHighestNumberIsRead) {
  const std::string name = std::string(GetParam().prefix) + "99";
  driver().add(name);
  driver().set_contents(name + "/value", "1");
  EXPECT_EQ(read(99), 1);
}

TEST_P(DioValue, RefusesNullFirst) {
  errno = 0;
  EXPECT_EQ(GetParam().read(1, nullptr), DIO_ERR_IO);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(GetParam().read(0, nullptr), DIO_ERR_IO);
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_P(DioValue, IsReadAllTheSameWhenClosingFails) {
  driver().set_contents(file_, "1");
  driver().fail("close", file_, EIO);
  errno = 0;
  EXPECT_EQ(read(1), 1);
  EXPECT_EQ(errno, 0);
  EXPECT_THAT(log_.take(), ElementsAre(failed("close", path_, EIO)));
}

TEST_P(DioValue, KeepsTheFirstFailureWhenClosingFailsToo) {
  driver().fail("read", file_, ENXIO);
  driver().fail("close", file_, EIO);
  EXPECT_EQ(failure(1), DIO_ERR_IO);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_THAT(log_.take(), ElementsAre(not_read(path_, ENXIO), failed("close", path_, EIO)));
}

TEST_P(DioValue, IsReadAgainAfterASignal) {
  driver().set_contents(file_, "1");
  driver().fail("open", file_, EINTR, 0, 2);
  driver().fail("read", file_, EINTR, 0, 2);
  EXPECT_EQ(read(1), 1);
}

TEST_P(DioValue, IsReadThoughCancelled) {
  driver().set_contents(file_, "1");
  unsigned char value = kUntouched;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { value = read(1); }));
  EXPECT_EQ(value, 1);
  unsigned result = DIO_OK;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = failure(100); }));
  EXPECT_EQ(result, DIO_ERR_RANGE);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = failure(4); }));
  EXPECT_EQ(result, DIO_ERR_NOENT);
  EXPECT_THAT(log_.take(), testing::SizeIs(2));
}

TEST_P(DioValue, IsReadOnASmallStack) {
  unsigned char value = kUntouched;
  support::run_on_small_stack([&] { value = read(1); });
  EXPECT_EQ(value, 0);
}

class DioSetValue : public DioTest {};

TEST_F(DioSetValue, SwitchesAnOutput) {
  EXPECT_EQ(dio_setValue(2, 1), DIO_OK);
  EXPECT_EQ(driver().contents("dout2/value"), "1");
  EXPECT_EQ(driver().contents("dout1/value"), "0");
  EXPECT_EQ(dio_setValue(2, 0), DIO_OK);
  EXPECT_EQ(driver().contents("dout2/value"), "0");
}

TEST_F(DioSetValue, WritesOneCharacter) {
  EXPECT_EQ(dio_setValue(1, 1), DIO_OK);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of("dout1/value", "w", {{"write", "dout1/value", "1"}})));
  EXPECT_EQ(dio_setValue(1, 0), DIO_OK);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of("dout1/value", "w", {{"write", "dout1/value", "0"}})));
}

TEST_F(DioSetValue, TakesAnythingButZeroForOn) {
  for (const int on : {2, -1, 256, 65536, INT_MAX, INT_MIN}) {
    ASSERT_EQ(dio_setValue(1, 0), DIO_OK);
    EXPECT_EQ(dio_setValue(1, on), DIO_OK);
    EXPECT_EQ(driver().contents("dout1/value"), "1") << on;
  }
}

TEST_F(DioSetValue, TellsThatWritingFailed) {
  for (const int error : {EIO, EEXIST, ENOENT, ENOSPC}) {
    driver().fail("write", "dout1/value", error);
    errno = 0;
    EXPECT_EQ(dio_setValue(1, 1), DIO_ERR_IO);
    EXPECT_EQ(errno, error);
    EXPECT_THAT(log_.take(), ElementsAre(not_written(kOutput1, error)));
  }
}

TEST_F(DioSetValue, TellsThatNothingWasTaken) {
  driver().take_only("dout1/value", 0);
  errno = 12345;
  EXPECT_EQ(dio_setValue(1, 1), DIO_ERR_IO);
  EXPECT_EQ(errno, 0);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kOutput1, 0)));
  EXPECT_EQ(driver().contents("dout1/value"), "0");
}

TEST_F(DioSetValue, TellsThatThereIsNone) {
  EXPECT_EQ(dio_setValue(3, 1), DIO_ERR_NOENT);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(log_.take(),
              ElementsAre(failed("open", std::string(kDriver) + "dout3/value", ENOENT)));
}

TEST_F(DioSetValue, TellsThatTheFileCannotBeOpened) {
  driver().fail("open", "dout1/value", EBUSY);
  EXPECT_EQ(dio_setValue(1, 1), DIO_ERR_IO);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", kOutput1, EBUSY)));
}

TEST_F(DioSetValue, OfANumberThatIsNoneIsOutOfRange) {
  EXPECT_EQ(dio_setValue(0, 1), DIO_ERR_RANGE);
  EXPECT_EQ(dio_setValue(100, 1), DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(), ElementsAre(out_of_range("0"), out_of_range("100")));
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioSetValue, SwitchesTheHighestNumber) {
  driver().add("dout99");
  EXPECT_EQ(dio_setValue(99, 1), DIO_OK);
  EXPECT_EQ(driver().contents("dout99/value"), "1");
}

TEST_F(DioSetValue, HasSwitchedWhenClosingFails) {
  driver().fail("close", "dout1/value", EIO);
  EXPECT_EQ(dio_setValue(1, 1), DIO_OK);
  EXPECT_THAT(log_.take(), ElementsAre(failed("close", kOutput1, EIO)));
  EXPECT_EQ(driver().contents("dout1/value"), "1");
}

TEST_F(DioSetValue, IsTriedAgainAfterASignal) {
  driver().fail("open", "dout1/value", EINTR);
  driver().fail("write", "dout1/value", EINTR, 0, 2);
  EXPECT_EQ(dio_setValue(1, 1), DIO_OK);
  EXPECT_EQ(driver().contents("dout1/value"), "1");
}

TEST_F(DioSetValue, SwitchesThoughCancelled) {
  unsigned result = DIO_ERR_IO;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = dio_setValue(1, 1); }));
  EXPECT_EQ(result, DIO_OK);
  EXPECT_EQ(driver().contents("dout1/value"), "1");
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = dio_setValue(0, 1); }));
  EXPECT_EQ(result, DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(), ElementsAre(out_of_range("0")));
}

class DioValueFolders : public DioFolderTest {
 protected:
  DioValueFolders() {
    put("din1/value", "1\n");
    put("dout1/value", "0\n");
  }

  std::string output_ = sys_.at("devices/halcyonix/dout1/value");
};

TEST_F(DioValueFolders, AreWrittenIntoTheFileAsItIs) {
  EXPECT_EQ(dio_setValue(1, 1), DIO_OK);
  std::ostringstream text;
  text << std::ifstream(output_).rdbuf();
  EXPECT_EQ(text.str(), "1\n");
}

TEST_F(DioValueFolders, AreWrittenIntoNoNewFile) {
  fs::remove(output_);
  EXPECT_EQ(dio_setValue(1, 1), DIO_ERR_NOENT);
  EXPECT_FALSE(fs::exists(output_));
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", kOutput1, ENOENT)));
}

TEST_F(DioValueFolders, HaveDescriptorsForNoOtherProgram) {
  EXPECT_THAT(support::descriptor_flags_at(support::SystemCall::kRead,
                                           [] {
                                             unsigned char value = kUntouched;
                                             dio_roValue(1, &value);
                                             dio_rwValue(1, &value);
                                           }),
              ElementsAre(FD_CLOEXEC, FD_CLOEXEC));
  EXPECT_THAT(support::descriptor_flags_at(support::SystemCall::kWrite, [] { dio_setValue(1, 1); }),
              ElementsAre(FD_CLOEXEC));
}

using DioValueWithABrokenLog = DioBrokenLogTest;

TEST_F(DioValueWithABrokenLog, TellsWhatFailed) {
  make_folder("din1/value");
  make_folder("dout1/value");
  unsigned result = DIO_OK;
  unsigned char value = kUntouched;
  EXPECT_EQ(error_after([&] { result = dio_roValue(1, &value); }), EISDIR);
  EXPECT_EQ(result, DIO_ERR_IO) << "of reading";
  EXPECT_EQ(error_after([&] { result = dio_setValue(1, 1); }), EISDIR);
  EXPECT_EQ(result, DIO_ERR_IO) << "of opening";
  EXPECT_EQ(value, kUntouched);
}

TEST(DioValueDeathTest, IsAsserted) {
  EXPECT_EXIT(rkutils::dio::dio_value(rkutils::dio::DriverPath("din", 1, "value"), nullptr),
              testing::KilledBySignal(SIGABRT),
              assertion("on != NULL", "rkutils/dio", "dio_value"));
}

}  // namespace
