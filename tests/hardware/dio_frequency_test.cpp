// The frequency of inputs.

#include <cerrno>
#include <climits>
#include <string>
#include <utility>

#include <fcntl.h>

#include "dio_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using support::SystemCall;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::SizeIs;

constexpr unsigned char kUntouched = 77;
constexpr DioFrequency kUntouchedFrequency = {7, 8, 9};
constexpr char kFile[] = "din1/frequency";
const std::string kPath = std::string(kDriver) + kFile;

MATCHER_P3(Reads, first, second, value, "") {
  return arg.first == first && arg.second == second && arg.value == value;
}

// Not a matcher: the sanitizer looks at those with a descriptor, which a test may have taken.
bool is_untouched(const DioFrequency& frequency) {
  return frequency.value == kUntouchedFrequency.value &&
         frequency.first == kUntouchedFrequency.first &&
         frequency.second == kUntouchedFrequency.second;
}

// What all three do with numbers, and with a file that is not there.
struct Function {
  const char* name;
  const char* open;  // how the failed call is named
  unsigned (*call)(uint32_t number);
};

class DioFrequencyFunctions : public DioTest, public testing::WithParamInterface<Function> {};

INSTANTIATE_TEST_SUITE_P(
    All, DioFrequencyFunctions,
    testing::Values(Function{"Read", "fopen",
                             [](uint32_t number) {
                               DioFrequency frequency = kUntouchedFrequency;
                               const unsigned result = dio_frequency(number, &frequency);
                               EXPECT_TRUE(is_untouched(frequency));
                               return result;
                             }},
                    Function{"Ask", "open",
                             [](uint32_t number) {
                               unsigned char active = kUntouched;
                               const unsigned result = dio_frequencyActive(number, &active);
                               EXPECT_EQ(active, kUntouched);
                               return result;
                             }},
                    Function{"SwitchOn", "open",
                             [](uint32_t number) { return dio_setFrequencyActive(number, 1); }},
                    Function{"SwitchOff", "open",
                             [](uint32_t number) { return dio_setFrequencyActive(number, 0); }}),
    [](const auto& function) { return std::string(function.param.name); });

TEST_P(DioFrequencyFunctions, KnowNoNumberOutOfRange) {
  EXPECT_EQ(GetParam().call(0), DIO_ERR_RANGE);
  EXPECT_EQ(GetParam().call(100), DIO_ERR_RANGE);
  EXPECT_EQ(GetParam().call(UINT32_MAX), DIO_ERR_RANGE);
  EXPECT_THAT(log_.take(),
              ElementsAre(out_of_range("0"), out_of_range("100"), out_of_range("4294967295")));
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_P(DioFrequencyFunctions, TellThatThereIsNoFile) {
  errno = 0;
  EXPECT_EQ(GetParam().call(99), DIO_ERR_NOENT);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(log_.take(), ElementsAre(failed(GetParam().open,
                                              std::string(kDriver) + "din99/frequency", ENOENT)));
}

TEST_P(DioFrequencyFunctions, TellThatTheFileCannotBeOpened) {
  for (const int error : {EACCES, EBUSY, EEXIST}) {
    driver().fail("open", kFile, error);
    errno = 0;
    EXPECT_EQ(GetParam().call(1), DIO_ERR_IO);
    EXPECT_EQ(errno, error);
    EXPECT_THAT(log_.take(), ElementsAre(failed(GetParam().open, kPath, error)));
  }
}

TEST_P(DioFrequencyFunctions, FailWithoutADescriptor) {
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(GetParam().call(1), DIO_ERR_IO);
    EXPECT_EQ(errno, EMFILE);
  }
  EXPECT_THAT(log_.take(), ElementsAre(failed(GetParam().open, kPath, EMFILE)));
}

TEST_P(DioFrequencyFunctions, FinishThoughCancelled) {
  for (const auto& [number, expected] : {std::pair(0U, DIO_ERR_RANGE), {99U, DIO_ERR_NOENT}}) {
    unsigned result = DIO_OK;
    EXPECT_TRUE(support::finishes_though_cancelled(
        [&, input = number] { result = GetParam().call(input); }));
    EXPECT_EQ(result, expected);
  }
  EXPECT_THAT(log_.take(), SizeIs(2));
}

class DioFrequencyReading : public DioTest {
 protected:
  // What is read from a file of these contents.
  unsigned read(const std::string& contents) {
    driver().set_contents(kFile, contents);
    frequency_ = kUntouchedFrequency;
    errno = 12345;
    return dio_frequency(1, &frequency_);
  }

  DioFrequency frequency_ = kUntouchedFrequency;
};

TEST_F(DioFrequencyReading, GivesTheThreeNumbersInTheirOrder) {
  EXPECT_EQ(read("1 2 3\n"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(1, 2, 3U));
}

TEST_F(DioFrequencyReading, OpensTheFileForReadingAndClosesIt) {
  EXPECT_EQ(read("1 2 3\n"), DIO_OK);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(kFile, "r", {{"read", kFile, "1 2 3\n"}})));
}

TEST_F(DioFrequencyReading, TakesAnyWhiteSpaceAndWhatFollows) {
  for (const char* contents : {"1 2 3", " 1\t2\n3 ", "\n\n+1 \v\f\r 2 03x", "1 2 3 4", "1 2 3.5"}) {
    EXPECT_EQ(read(contents), DIO_OK) << contents;
    EXPECT_THAT(frequency_, Reads(1, 2, 3U)) << contents;
  }
}

TEST_F(DioFrequencyReading, OfWhatIsNotMeasuredIsInactive) {
  EXPECT_EQ(read("0 0 0"), DIO_ERR_INACTIVE);
  EXPECT_THAT(frequency_, Reads(0, 0, 0U));
  EXPECT_EQ(read("0 0 5"), DIO_ERR_INACTIVE);
  EXPECT_THAT(frequency_, Reads(0, 0, 5U));
}

TEST_F(DioFrequencyReading, IsActiveWithEitherOfTheFirstTwoNumbers) {
  EXPECT_EQ(read("12 0 5"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(12, 0, 5U));
  EXPECT_EQ(read("0 12 5"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(0, 12, 5U));
  EXPECT_EQ(read("-1 0 0"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(-1, 0, 0U));
}

TEST_F(DioFrequencyReading, TakesTheLargestNumbers) {
  EXPECT_EQ(read(std::to_string(LONG_MAX) + " " + std::to_string(LONG_MIN) + " 4294967295"),
            DIO_OK);
  EXPECT_THAT(frequency_, Reads(LONG_MAX, LONG_MIN, UINT32_MAX));
}

TEST_F(DioFrequencyReading, TakesThirtyTwoBitsOfTheThirdNumber) {
  for (const auto& [number, expected] : {std::pair("4294967296", 0U),
                                         {"5000000000", 705032704U},
                                         {"-1", UINT32_MAX},
                                         {"999999999999999999999", UINT32_MAX}}) {
    EXPECT_EQ(read(std::string("1 2 ") + number), DIO_OK) << number;
    EXPECT_THAT(frequency_, Reads(1, 2, expected)) << number;
  }
}

TEST_F(DioFrequencyReading, IsNotDisturbedByNumbersThatAreTooLarge) {
  const std::string large = "999999999999999999999";
  EXPECT_EQ(read(large + " 2 3"), DIO_OK);
  EXPECT_EQ(frequency_.second, 2);
  EXPECT_EQ(frequency_.value, 3U);
  EXPECT_EQ(read("1 -" + large + " 3"), DIO_OK);
  EXPECT_EQ(frequency_.first, 1);
  EXPECT_EQ(frequency_.value, 3U);
}

TEST_F(DioFrequencyReading, IsOfDecimalNumbers) {
  EXPECT_EQ(read("010 -020 0030"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(10, -20, 30U));
  EXPECT_EQ(read("0x10 2 3"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(0, 9, 7U));
  EXPECT_THAT(log_.take(), ElementsAre(lexical_error(kPath)));
}

TEST_F(DioFrequencyReading, IsALexicalErrorWithoutThreeNumbers) {
  EXPECT_EQ(read("x 2 3"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(8, 9, 7U));
  EXPECT_EQ(read("1"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(1, 9, 7U));
  EXPECT_EQ(read("1 2\n"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(1, 2, 7U));
  EXPECT_EQ(read("0 0 x"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(0, 0, 7U));
  EXPECT_EQ(read("1,2,3"), DIO_ERR_LEXICAL);
  const support::LogLine expected = lexical_error(kPath);
  EXPECT_THAT(log_.take(), ElementsAre(expected, expected, expected, expected, expected));
}

TEST_F(DioFrequencyReading, FailsForAnEmptyFile) {
  for (const char* contents : {"", "\n", " \t "}) {
    EXPECT_EQ(read(contents), DIO_ERR_IO);
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(frequency_, Reads(8, 9, 7U));
    EXPECT_THAT(log_.take(), ElementsAre(failed("fscanf", kPath, 0)));
  }
}

// Some C libraries try once more for the next character behind a failure.
constexpr unsigned kEveryTime = 100;

TEST_F(DioFrequencyReading, TellsThatItFailed) {
  driver().fail("read", kFile, EIO, 0, kEveryTime);
  EXPECT_EQ(read("1 2 3"), DIO_ERR_IO);
  EXPECT_EQ(errno, EIO);
  EXPECT_THAT(frequency_, Reads(8, 9, 7U));
  EXPECT_THAT(log_.take(), ElementsAre(failed("fscanf", kPath, EIO)));
}

TEST_F(DioFrequencyReading, MakesDoWithWhatWasReadBeforeItFailed) {
  driver().fail("read", kFile, EIO, 1);
  EXPECT_EQ(read("1 2 3"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(1, 2, 3U));
  driver().fail("read", kFile, EIO, 1);
  EXPECT_EQ(read("1 2"), DIO_ERR_LEXICAL);
  EXPECT_THAT(frequency_, Reads(1, 2, 7U));
  driver().fail("read", kFile, EIO, 1);
  EXPECT_EQ(read(" "), DIO_ERR_IO);
  EXPECT_EQ(errno, EIO);
  EXPECT_THAT(log_.take(), ElementsAre(lexical_error(kPath), failed("fscanf", kPath, EIO)));
}

TEST_F(DioFrequencyReading, FailsWithoutMemory) {
  unsigned result = DIO_OK;
  int error = 0;
  {
    const support::FailingAllocation first(1);
    result = dio_frequency(1, &frequency_);
    error = errno;
    EXPECT_TRUE(first.happened());
  }
  EXPECT_EQ(result, DIO_ERR_IO);
  EXPECT_EQ(error, ENOMEM);
  EXPECT_THAT(frequency_, Reads(8, 9, 7U));
  EXPECT_THAT(log_.take(), ElementsAre(failed("fopen", kPath, ENOMEM)));
}

TEST_F(DioFrequencyReading, IsDoneAllTheSameWhenClosingFails) {
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(read("1 2 3"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(1, 2, 3U));
  EXPECT_THAT(log_.take(), ElementsAre(failed("fclose", kPath, EIO)));
}

TEST_F(DioFrequencyReading, KeepsTheFirstFailureWhenClosingFailsToo) {
  driver().fail("read", kFile, ENXIO, 0, kEveryTime);
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(read("1 2 3"), DIO_ERR_IO);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_THAT(log_.take(),
              ElementsAre(failed("fscanf", kPath, ENXIO), failed("fclose", kPath, EIO)));
}

TEST_F(DioFrequencyReading, BeginsAnewAfterASignal) {
  driver().fail("open", kFile, EINTR);
  driver().fail("read", kFile, EINTR);
  EXPECT_EQ(read("1 2 3"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(1, 2, 3U));
  // In the middle: before the end, which is what the last number ends with.
  driver().fail("read", kFile, EINTR, 1);
  EXPECT_EQ(read("4 5 6"), DIO_OK);
  EXPECT_THAT(frequency_, Reads(4, 5, 6U));
}

TEST_F(DioFrequencyReading, RefusesNullFirst) {
  errno = 0;
  EXPECT_EQ(dio_frequency(1, nullptr), DIO_ERR_IO);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(dio_frequency(0, nullptr), DIO_ERR_IO);
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioFrequencyReading, WorksOnASmallStack) {
  unsigned result = DIO_ERR_IO;
  support::run_on_small_stack([&] { result = read("1 2 3"); });
  EXPECT_EQ(result, DIO_OK);
}

TEST_F(DioFrequencyReading, IsDoneThoughCancelled) {
  unsigned result = DIO_ERR_IO;
  const auto read_again = [&] { result = dio_frequency(1, &frequency_); };
  driver().set_contents(kFile, "1 2 3");
  EXPECT_TRUE(support::finishes_though_cancelled(read_again));
  EXPECT_EQ(result, DIO_OK);
  EXPECT_THAT(frequency_, Reads(1, 2, 3U));
  driver().set_contents(kFile, "");
  EXPECT_TRUE(support::finishes_though_cancelled(read_again));
  EXPECT_EQ(result, DIO_ERR_IO);
  EXPECT_THAT(log_.take(), ElementsAre(failed("fscanf", kPath, 0)));
}

class DioFrequencyActive : public DioTest {
 protected:
  // The answer; the test fails where there is none.
  unsigned char is_active(uint32_t number) {
    unsigned char active = kUntouched;
    EXPECT_EQ(dio_frequencyActive(number, &active), DIO_OK);
    return active;
  }

  // The result of what fails, which leaves the answer as it was.
  unsigned failure() {
    unsigned char active = kUntouched;
    errno = 12345;
    const unsigned result = dio_frequencyActive(1, &active);
    EXPECT_EQ(active, kUntouched);
    return result;
  }
};

TEST_F(DioFrequencyActive, IsNotBeforeItIsSwitchedOn) {
  EXPECT_EQ(is_active(1), 0);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(kFile, "w", {{"write", kFile, "-1"}})));
}

TEST_F(DioFrequencyActive, IsLoggedAsAFailedWriteWhenItIs) {
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  driver().take_operations();
  EXPECT_EQ(is_active(1), 1);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST)));
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(kFile, "w", {{"write", kFile, "-1", EEXIST}})));
  EXPECT_EQ(is_active(2), 0);
}

TEST_F(DioFrequencyActive, AsksWithoutSwitching) {
  EXPECT_EQ(is_active(1), 0);
  EXPECT_EQ(is_active(1), 0);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_EQ(is_active(1), 1);
  EXPECT_EQ(is_active(1), 1);
  EXPECT_THAT(log_.take(), SizeIs(2));
}

TEST_F(DioFrequencyActive, IsInactiveWhenTheDriverRefusesOtherwise) {
  for (const int error : {EINVAL, EIO, ENOENT, EBUSY}) {
    driver().fail("write", kFile, error);
    EXPECT_EQ(failure(), DIO_ERR_INACTIVE);
    EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, error)));
  }
}

TEST_F(DioFrequencyActive, FailsWhenTheQuestionIsNotTakenWhole) {
  for (const std::size_t count : {0U, 1U}) {
    driver().take_only(kFile, count);
    EXPECT_EQ(failure(), DIO_ERR_IO);
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, 0)));
  }
}

TEST_F(DioFrequencyActive, IsToldAllTheSameWhenClosingFails) {
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(is_active(1), 0);
  EXPECT_THAT(log_.take(), ElementsAre(failed("close", kPath, EIO)));
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(is_active(1), 1);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST), failed("close", kPath, EIO)));
}

TEST_F(DioFrequencyActive, IsAskedAgainAfterASignal) {
  driver().fail("write", kFile, EINTR, 0, 2);
  EXPECT_EQ(is_active(1), 0);
}

TEST_F(DioFrequencyActive, RefusesNullFirst) {
  errno = 0;
  EXPECT_EQ(dio_frequencyActive(1, nullptr), DIO_ERR_IO);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(dio_frequencyActive(100, nullptr), DIO_ERR_IO);
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioFrequencyActive, IsToldThoughCancelled) {
  unsigned char active = kUntouched;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { active = is_active(1); }));
  EXPECT_EQ(active, 0);
  ASSERT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { active = is_active(1); }));
  EXPECT_EQ(active, 1);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST)));
}

class DioSetFrequencyActive : public DioTest {};

TEST_F(DioSetFrequencyActive, BeginsAndEndsMeasuring) {
  driver().set_measured(1, "1 20 50\n");
  DioFrequency frequency = {};
  EXPECT_EQ(dio_frequency(1, &frequency), DIO_ERR_INACTIVE);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_EQ(dio_frequency(1, &frequency), DIO_OK);
  EXPECT_THAT(frequency, Reads(1, 20, 50U));
  EXPECT_EQ(dio_frequency(2, &frequency), DIO_ERR_INACTIVE);
  EXPECT_EQ(dio_setFrequencyActive(1, 0), DIO_OK);
  EXPECT_EQ(dio_frequency(1, &frequency), DIO_ERR_INACTIVE);
}

TEST_F(DioSetFrequencyActive, WritesOneCharacter) {
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(kFile, "w", {{"write", kFile, "1"}})));
  EXPECT_EQ(dio_setFrequencyActive(1, 0), DIO_OK);
  EXPECT_THAT(driver().take_operations(),
              ElementsAreArray(use_of(kFile, "w", {{"write", kFile, "0"}})));
}

TEST_F(DioSetFrequencyActive, TakesAnythingButZeroForOn) {
  for (const int on : {2, -1, 256, INT_MIN}) {
    EXPECT_EQ(dio_setFrequencyActive(1, on), DIO_OK);
    EXPECT_EQ(dio_setFrequencyActive(1, 0), DIO_OK);
  }
}

TEST_F(DioSetFrequencyActive, TellsThatItHasBegunBefore) {
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_ERR_ACTIVE);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST)));
}

TEST_F(DioSetFrequencyActive, TellsThatItHasNotBegun) {
  EXPECT_EQ(dio_setFrequencyActive(1, 0), DIO_ERR_INACTIVE);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, ENOENT)));
}

TEST_F(DioSetFrequencyActive, FailsForAllOtherAnswers) {
  for (const auto& [on, error] :
       {std::pair(1, ENOENT), {1, EIO}, {1, EINVAL}, {0, EEXIST}, {0, EIO}, {0, EINVAL}}) {
    driver().fail("write", kFile, error);
    errno = 0;
    EXPECT_EQ(dio_setFrequencyActive(1, on), DIO_ERR_IO) << on << ' ' << error;
    EXPECT_EQ(errno, error);
    EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, error)));
  }
}

TEST_F(DioSetFrequencyActive, FailsWhenNothingIsTaken) {
  for (const int on : {0, 1}) {
    driver().take_only(kFile, 0);
    errno = on != 0 ? EEXIST : ENOENT;
    EXPECT_EQ(dio_setFrequencyActive(1, on), DIO_ERR_IO);
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, 0)));
  }
}

TEST_F(DioSetFrequencyActive, HasSwitchedWhenClosingFails) {
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
  EXPECT_THAT(log_.take(), ElementsAre(failed("close", kPath, EIO)));
  driver().fail("close", kFile, EIO);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_ERR_ACTIVE);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST), failed("close", kPath, EIO)));
}

TEST_F(DioSetFrequencyActive, SwitchesThoughCancelled) {
  unsigned result = DIO_ERR_IO;
  const auto switch_on = [&result] { result = dio_setFrequencyActive(1, 1); };
  EXPECT_TRUE(support::finishes_though_cancelled(switch_on));
  EXPECT_EQ(result, DIO_OK);
  EXPECT_TRUE(support::finishes_though_cancelled(switch_on));
  EXPECT_EQ(result, DIO_ERR_ACTIVE);
  EXPECT_THAT(log_.take(), ElementsAre(not_written(kPath, EEXIST)));
}

TEST_F(DioSetFrequencyActive, IsTriedAgainAfterASignal) {
  driver().fail("write", kFile, EINTR, 0, 2);
  EXPECT_EQ(dio_setFrequencyActive(1, 1), DIO_OK);
}

using DioFrequencyWithABrokenLog = DioBrokenLogTest;

TEST_F(DioFrequencyWithABrokenLog, TellsTheDriversAnswer) {
  put(kFile, "1 2 3\n");
  const support::FailingCall refused = {SystemCall::kWrite, EEXIST, 0, 1};
  unsigned result = DIO_ERR_IO;
  unsigned char active = kUntouched;
  EXPECT_EQ(error_after([&] { result = dio_frequencyActive(1, &active); }, {refused}), EEXIST);
  EXPECT_EQ(result, DIO_OK);
  EXPECT_EQ(active, 1);
  EXPECT_EQ(error_after([&] { result = dio_setFrequencyActive(1, 1); }, {refused}), EEXIST);
  EXPECT_EQ(result, DIO_ERR_ACTIVE);
  EXPECT_EQ(error_after([&] { result = dio_setFrequencyActive(1, 0); }, {refused}), EEXIST);
  EXPECT_EQ(result, DIO_ERR_IO);
}

class DioFrequencyFolders : public DioFolderTest {
 protected:
  DioFrequencyFolders() { put(kFile, "1 2 3\n"); }
};

TEST_F(DioFrequencyFolders, HaveDescriptorsForNoOtherProgram) {
  EXPECT_THAT(support::descriptor_flags_at(SystemCall::kRead,
                                           [] {
                                             DioFrequency frequency = {};
                                             dio_frequency(1, &frequency);
                                           }),
              AllOf(SizeIs(testing::Ge(1U)), Each(FD_CLOEXEC)));
  EXPECT_THAT(support::descriptor_flags_at(SystemCall::kWrite,
                                           [] {
                                             unsigned char active = kUntouched;
                                             dio_frequencyActive(1, &active);
                                             dio_setFrequencyActive(1, 1);
                                           }),
              AllOf(SizeIs(2), Each(FD_CLOEXEC)));
}

}  // namespace
