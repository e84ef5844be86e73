// Status records: values of all inputs and outputs as bits.

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "dio_fixture.h"
#include "support/case_name.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using support::DioOperation;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::KilledBySignal;

constexpr char kSource[] = "rkutils/dio_status";

// The functions of one direction.
struct Direction {
  const char* name;
  const char* prefix;
  unsigned (*fill)(DioStatus*);
  int (*get)(const DioStatus*, uint32_t);
  void (*set)(DioStatus*, uint32_t, int);
};

const Direction kInputs = {"Inputs", "din", dio_getStatusIn, dio_getInValueFromStatus,
                           dio_setInValueInStatus};
const Direction kOutputs = {"Outputs", "dout", dio_getStatusOut, dio_getOutValueFromStatus,
                            dio_setOutValueInStatus};

// The bits of these numbers.
std::array<unsigned char, 12> bits_of(const std::vector<uint32_t>& numbers) {
  std::array<unsigned char, 12> bits = {};
  for (const uint32_t number : numbers) {
    bits.at((number - 1) / 8) |= static_cast<unsigned char>(1U << (number - 1) % 8);
  }
  return bits;
}

// ---- Bits ----

class DioStatusBits : public testing::TestWithParam<Direction> {
 protected:
  DioStatusBits() { status_.count = 96; }

  [[nodiscard]] int get(uint32_t number) const { return GetParam().get(&status_, number); }
  void set(uint32_t number, int value) { GetParam().set(&status_, number, value); }

  // The numbers that have this value.
  [[nodiscard]] std::vector<uint32_t> numbers_of(int value) const {
    std::vector<uint32_t> numbers;
    for (uint32_t number = 1; number <= status_.count; ++number) {
      if (get(number) == value) numbers.push_back(number);
    }
    return numbers;
  }

  DioStatus status_ = {};
};

INSTANTIATE_TEST_SUITE_P(Of, DioStatusBits, testing::Values(kInputs, kOutputs),
                         support::CaseName());

TEST_P(DioStatusBits, AreCountedFromTheLowestOfTheFirstByte) {
  set(1, 1);
  EXPECT_EQ(status_.bits[0], 0x01);
  set(8, 1);
  EXPECT_EQ(status_.bits[0], 0x81);
  set(9, 1);
  EXPECT_EQ(status_.bits[1], 0x01);
  set(96, 1);
  EXPECT_EQ(status_.bits[11], 0x80);
  EXPECT_EQ(status_.count, 96U);
}

TEST_P(DioStatusBits, AreEachNumbersOwn) {
  for (uint32_t number = 1; number <= 96; ++number) {
    status_ = {96, {}};
    set(number, 1);
    EXPECT_THAT(status_.bits, ElementsAreArray(bits_of({number})));
    EXPECT_THAT(numbers_of(1), ElementsAre(number));
    std::memset(status_.bits, 0xFF, sizeof status_.bits);
    set(number, 0);
    EXPECT_THAT(numbers_of(0), ElementsAre(number));
    EXPECT_EQ(status_.count, 96U);
  }
}

TEST_P(DioStatusBits, AreSetByAnythingButZero) {
  for (const int value : {1, 2, -1, 256, 65536}) {
    set(3, value);
    EXPECT_EQ(get(3), 1) << value;
    set(3, value);
    EXPECT_EQ(get(3), 1) << value;
    set(3, 0);
    EXPECT_EQ(get(3), 0);
    set(3, 0);
    EXPECT_EQ(get(3), 0);
  }
}

// A record with what follows it in memory.
struct Followed {
  DioStatus status;
  unsigned char next[4];
};

TEST_P(DioStatusBits, OfTheLastThreeNumbersAreInTheByteThatFollows) {
  Followed record = {};
  record.status.count = 99;
  for (const auto& [number, bit] : {std::pair(97U, 1), {98U, 2}, {99U, 4}}) {
    GetParam().set(&record.status, number, 1);
    EXPECT_THAT(record.next, ElementsAre(bit, 0, 0, 0));
    EXPECT_EQ(GetParam().get(&record.status, number), 1);
    GetParam().set(&record.status, number, 0);
    EXPECT_THAT(record.next, Each(0));
    EXPECT_EQ(GetParam().get(&record.status, number), 0);
  }
  EXPECT_THAT(record.status.bits, Each(0));
  std::memset(record.next, 0xFF, sizeof record.next);
  GetParam().set(&record.status, 98, 0);
  EXPECT_THAT(record.next, ElementsAre(0xFD, 0xFF, 0xFF, 0xFF));
  EXPECT_EQ(record.status.count, 99U);
}

TEST(DioStatusAll, HasTheInputsLastThreeInTheCountOfOutputs) {
  DioStatusAll all = {};
  all.in.count = 99;
  dio_setInValueInStatus(&all.in, 97, 1);
  dio_setInValueInStatus(&all.in, 99, 1);
  std::array<unsigned char, sizeof all> bytes = {};
  std::memcpy(bytes.data(), &all, sizeof all);
  EXPECT_EQ(bytes.at(16), 5);
  all.out.count = UINT32_MAX;
  EXPECT_EQ(dio_getInValueFromStatus(&all.in, 98), 1);
  dio_setInValueInStatus(&all.in, 98, 0);
  std::memcpy(bytes.data(), &all, sizeof all);
  EXPECT_EQ(bytes.at(16), 0xFD);
}

// ---- Assertions ----

using DioStatusBitsDeathTest = DioStatusBits;

INSTANTIATE_TEST_SUITE_P(Of, DioStatusBitsDeathTest, testing::Values(kInputs, kOutputs),
                         support::CaseName());

// The names of a direction's functions and constants in reports.
struct Names {
  explicit Names(const Direction& direction) {
    const bool in = direction.get == kInputs.get;
    get = in ? "dio_getInValueFromStatus" : "dio_getOutValueFromStatus";
    set = in ? "dio_setInValueInStatus" : "dio_setOutValueInStatus";
    mask = in ? "dio_getIndexMaskIn" : "dio_getIndexMaskOut";
    minimum = in ? "DIORONUMBER_MIN" : "DIORWNUMBER_MIN";
    maximum = in ? "DIORONUMBER_MAX" : "DIORWNUMBER_MAX";
  }

  std::string get;
  std::string set;
  std::string mask;
  std::string minimum;
  std::string maximum;
};

TEST_P(DioStatusBitsDeathTest, NeedARecord) {
  const Names names(GetParam());
  EXPECT_EXIT(static_cast<void>(GetParam().get(nullptr, 1)), KilledBySignal(SIGABRT),
              assertion("status != NULL", kSource, names.get));
  EXPECT_EXIT(GetParam().set(nullptr, 1, 1), KilledBySignal(SIGABRT),
              assertion("status != NULL", kSource, names.set));
}

TEST_P(DioStatusBitsDeathTest, AreForNumbersThatAreCounted) {
  const Names names(GetParam());
  const std::string condition = "dio < status->count + " + names.minimum;
  status_.count = 2;
  EXPECT_EQ(get(2), 0);
  EXPECT_EXIT(static_cast<void>(get(3)), KilledBySignal(SIGABRT),
              assertion(condition, kSource, names.get));
  EXPECT_EXIT(set(3, 0), KilledBySignal(SIGABRT), assertion(condition, kSource, names.set));
  status_.count = UINT32_MAX;  // and one more is 0
  EXPECT_EXIT(static_cast<void>(get(1)), KilledBySignal(SIGABRT),
              assertion(condition, kSource, names.get));
}

TEST_P(DioStatusBitsDeathTest, AreForNumbersInRange) {
  const Names names(GetParam());
  status_.count = 100;
  EXPECT_EXIT(static_cast<void>(get(100)), KilledBySignal(SIGABRT),
              assertion("dio <= " + names.maximum, kSource, names.mask));
  EXPECT_EXIT(set(100, 1), KilledBySignal(SIGABRT),
              assertion("dio <= " + names.maximum, kSource, names.mask));
  status_.count = 0;
  EXPECT_EXIT(static_cast<void>(get(0)), KilledBySignal(SIGABRT),
              assertion("dio >= " + names.minimum, kSource, names.mask));
  EXPECT_EXIT(set(0, 1), KilledBySignal(SIGABRT),
              assertion("dio >= " + names.minimum, kSource, names.mask));
}

TEST(DioStatusDeathTest, NeedsARecord) {
  const std::string condition = "status != NULL";
  EXPECT_EXIT(dio_getStatusIn(nullptr), KilledBySignal(SIGABRT),
              assertion(condition, kSource, "dio_getStatusIn"));
  EXPECT_EXIT(dio_getStatusOut(nullptr), KilledBySignal(SIGABRT),
              assertion(condition, kSource, "dio_getStatusOut"));
  EXPECT_EXIT(dio_getStatus(nullptr), KilledBySignal(SIGABRT),
              assertion(condition, kSource, "dio_getStatus"));
  EXPECT_EXIT(dio_setStatusOut(nullptr), KilledBySignal(SIGABRT),
              assertion(condition, kSource, "dio_setStatusOut"));
}

TEST(DioStatusDeathTest, SetsNoMoreOutputsThanThereCanBe) {
  DioStatus status = {};
  status.count = 100;
  EXPECT_EXIT(dio_setStatusOut(&status), KilledBySignal(SIGABRT),
              assertion("status->count <= MAX_DIO_OUT_COUNT", kSource, "dio_setStatusOut"));
}

// Of one digit and of two there are 110 names. Not a DioFolderTest: that has a thread.
class DioTooManyDeathTest : public testing::Test {
 protected:
  // The child must find the folders that are here, not make its own.
  DioTooManyDeathTest() { testing::GTEST_FLAG(death_test_style) = "fast"; }
  ~DioTooManyDeathTest() override { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

  void make_hundred(const std::string& prefix) {
    for (int i = 0; i < 10; ++i) {
      for (int k = 0; k < 10; ++k) {
        sys_.make_folder("devices/halcyonix/" + prefix + std::to_string(i) + std::to_string(k));
      }
    }
  }

 private:
  support::KernelFolder sys_{"/sys"};
};

TEST_F(DioTooManyDeathTest, InputsEndTheProgram) {
  make_hundred("din");
  DioStatusAll all = {};
  EXPECT_EXIT(dio_getStatusIn(&all.in), KilledBySignal(SIGABRT),
              assertion("status->count <= MAX_DIO_IN_COUNT", kSource, "dio_getStatusIn"));
  EXPECT_EXIT(dio_getStatus(&all), KilledBySignal(SIGABRT),
              assertion("status->count <= MAX_DIO_IN_COUNT", kSource, "dio_getStatusIn"));
}

TEST_F(DioTooManyDeathTest, OutputsEndTheProgram) {
  make_hundred("dout");
  DioStatusAll all = {};
  EXPECT_EXIT(dio_getStatusOut(&all.out), KilledBySignal(SIGABRT),
              assertion("status->count <= MAX_DIO_OUT_COUNT", kSource, "dio_getStatusOut"));
}

// ---- All values at once ----

class DioGetStatus : public DioTest, public testing::WithParamInterface<Direction> {
 protected:
  [[nodiscard]] static std::string file_of(uint32_t number) {
    return GetParam().prefix + std::to_string(number) + "/value";
  }
  // Adds up to three.
  void add_third() { driver().add(std::string(GetParam().prefix) + "3"); }
};

INSTANTIATE_TEST_SUITE_P(Of, DioGetStatus, testing::Values(kInputs, kOutputs), support::CaseName());

TEST_P(DioGetStatus, HasTheCountAndAllValues) {
  add_third();
  driver().set_contents(file_of(1), "1");
  driver().set_contents(file_of(3), "1");
  DioStatus status = {};
  EXPECT_EQ(GetParam().fill(&status), DIO_OK);
  EXPECT_EQ(status.count, 3U);
  EXPECT_THAT(status.bits, ElementsAreArray(bits_of({1, 3})));
}

TEST_P(DioGetStatus, LeavesBitsOfHigherNumbers) {
  add_third();
  driver().set_contents(file_of(2), "1");
  DioStatus status = {};
  std::memset(&status, 0xFF, sizeof status);
  EXPECT_EQ(GetParam().fill(&status), DIO_OK);
  EXPECT_EQ(status.count, 3U);
  EXPECT_EQ(status.bits[0], 0xFA);
  EXPECT_EQ(status.bits[1], 0xFF);
  EXPECT_EQ(status.bits[11], 0xFF);
}

TEST_P(DioGetStatus, CountsOnceAndReadsInOrder) {
  add_third();
  DioStatus status = {};
  EXPECT_EQ(GetParam().fill(&status), DIO_OK);
  std::vector<DioOperation> expected = {{"opendir", ".", ""}, {"opendir", ".", ""}};
  for (const uint32_t number : {1U, 2U, 3U}) {
    const std::string file = file_of(number);
    for (const DioOperation& operation : use_of(file, "r", {{"read", file, "0"}})) {
      expected.push_back(operation);
    }
  }
  EXPECT_THAT(driver().take_operations(), ElementsAreArray(expected));
}

TEST_P(DioGetStatus, EndsAtTheFirstThatCannotBeRead) {
  add_third();
  driver().set_contents(file_of(1), "1");
  driver().set_contents(file_of(2), "?");
  driver().set_contents(file_of(3), "1");
  DioStatus status = {};
  EXPECT_EQ(GetParam().fill(&status), DIO_ERR_LEXICAL);
  EXPECT_EQ(status.count, 3U);
  EXPECT_THAT(status.bits, ElementsAreArray(bits_of({1})));
  EXPECT_THAT(log_.take(), ElementsAre(lexical_error(kDriver + file_of(2))));
  EXPECT_EQ(driver().take_operations().back().path, file_of(2));
}

TEST_P(DioGetStatus, TakesTheNumbersFromOneWhateverTheNames) {
  add_third();
  driver().command("remove " + std::string(GetParam().prefix) + "1");
  driver().add(std::string(GetParam().prefix) + "7");
  DioStatus status = {};
  EXPECT_EQ(GetParam().fill(&status), DIO_ERR_NOENT);
  EXPECT_EQ(status.count, 3U);
  EXPECT_THAT(log_.take(), ElementsAre(failed("open", kDriver + file_of(1), ENOENT)));
}

TEST_P(DioGetStatus, HasTheLastCountAfterAFailedScan) {
  add_third();
  DioStatus status = {};
  EXPECT_EQ(GetParam().fill(&status), DIO_OK);
  driver().command("remove " + std::string(GetParam().prefix) + "3");
  driver().fail("opendir", ".", EIO);
  EXPECT_EQ(GetParam().fill(&status), DIO_ERR_NOENT);
  EXPECT_EQ(status.count, 3U);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EIO),
                                       failed("open", kDriver + file_of(3), ENOENT)));
}

class DioGetStatusAll : public DioTest {};

TEST_F(DioGetStatusAll, HasInputsAndOutputs) {
  driver().set_contents("din2/value", "1");
  driver().set_contents("dout1/value", "1");
  DioStatusAll all = {};
  EXPECT_EQ(dio_getStatus(&all), DIO_OK);
  EXPECT_EQ(all.in.count, 3U);
  EXPECT_EQ(all.out.count, 2U);
  EXPECT_THAT(all.in.bits, ElementsAreArray(bits_of({2})));
  EXPECT_THAT(all.out.bits, ElementsAreArray(bits_of({1})));
}

TEST_F(DioGetStatusAll, LeavesTheOutputsWhenInputsFail) {
  driver().fail("read", "din3/value", EIO);
  DioStatusAll all = {};
  all.out.count = 12345;
  EXPECT_EQ(dio_getStatus(&all), DIO_ERR_IO);
  EXPECT_EQ(all.in.count, 3U);
  EXPECT_EQ(all.out.count, 12345U);
  EXPECT_THAT(log_.take(), ElementsAre(not_read(std::string(kDriver) + "din3/value", EIO)));
  EXPECT_EQ(driver().take_operations().back().path, "din3/value");
}

TEST_F(DioGetStatusAll, HasTheInputsWhenOutputsFail) {
  driver().set_contents("din1/value", "1");
  driver().set_contents("dout2/value", "x");
  DioStatusAll all = {};
  EXPECT_EQ(dio_getStatus(&all), DIO_ERR_LEXICAL);
  EXPECT_EQ(all.in.count, 3U);
  EXPECT_THAT(all.in.bits, ElementsAreArray(bits_of({1})));
  EXPECT_EQ(all.out.count, 2U);
  EXPECT_THAT(log_.take(), ElementsAre(lexical_error(std::string(kDriver) + "dout2/value")));
}

TEST_F(DioGetStatusAll, IsFilledThoughCancelled) {
  driver().set_contents("dout2/value", "1");
  DioStatusAll all = {};
  unsigned result = DIO_ERR_IO;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = dio_getStatus(&all); }));
  EXPECT_EQ(result, DIO_OK);
  EXPECT_EQ(all.in.count, 3U);
  EXPECT_THAT(all.out.bits, ElementsAreArray(bits_of({2})));
}

TEST_F(DioGetStatusAll, IsFilledOnASmallStack) {
  unsigned result = DIO_ERR_IO;
  support::run_on_small_stack([&] {
    DioStatusAll all = {};
    result = dio_getStatus(&all);
  });
  EXPECT_EQ(result, DIO_OK);
}

class DioGetStatusFolders : public DioFolderTest {
 protected:
  // Inputs or outputs from 1 on, with these values and then zeros.
  void make(const std::string& prefix, uint32_t count, const std::vector<uint32_t>& set) {
    for (uint32_t number = 1; number <= count; ++number) {
      const bool is_set = std::count(set.begin(), set.end(), number) != 0;
      put(prefix + std::to_string(number) + "/value", is_set ? "1" : "0");
    }
  }
};

TEST_F(DioGetStatusFolders, IsEmptyWithoutADriver) {
  DioStatusAll all;
  std::memset(&all, 0xFF, sizeof all);
  EXPECT_EQ(dio_getStatus(&all), DIO_OK);
  EXPECT_EQ(all.in.count, 0U);
  EXPECT_EQ(all.out.count, 0U);
  EXPECT_THAT(all.in.bits, Each(0xFF));
  EXPECT_THAT(all.out.bits, Each(0xFF));
}

TEST_F(DioGetStatusFolders, HasRoomForNinetySix) {
  make("din", 96, {1, 8, 9, 64, 95, 96});
  make("dout", 96, {2, 96});
  Followed guarded[2] = {};
  EXPECT_EQ(dio_getStatusIn(&guarded[0].status), DIO_OK);
  EXPECT_EQ(dio_getStatusOut(&guarded[1].status), DIO_OK);
  EXPECT_EQ(guarded[0].status.count, 96U);
  EXPECT_EQ(guarded[1].status.count, 96U);
  EXPECT_THAT(guarded[0].status.bits, ElementsAreArray(bits_of({1, 8, 9, 64, 95, 96})));
  EXPECT_THAT(guarded[1].status.bits, ElementsAreArray(bits_of({2, 96})));
  EXPECT_THAT(guarded[0].next, Each(0));
  EXPECT_THAT(guarded[1].next, Each(0));
}

TEST_F(DioGetStatusFolders, HasThreeMoreInTheByteThatFollows) {
  make("din", 99, {96, 97, 99});
  Followed record = {};
  EXPECT_EQ(dio_getStatusIn(&record.status), DIO_OK);
  EXPECT_EQ(record.status.count, 99U);
  EXPECT_THAT(record.status.bits, ElementsAreArray(bits_of({96})));
  EXPECT_THAT(record.next, ElementsAre(5, 0, 0, 0));
}

TEST_F(DioGetStatusFolders, IsSwitchedFromTheByteThatFollows) {
  make("dout", 99, {96, 97, 99});
  Followed record = {{99, {}}, {0x02, 0xFF, 0xFF, 0xFF}};
  EXPECT_EQ(dio_setStatusOut(&record.status), DIO_OK);
  for (const auto& [number, expected] : {std::pair(96U, 0), {97U, 0}, {98U, 1}, {99U, 0}}) {
    unsigned char value = 77;
    EXPECT_EQ(dio_rwValue(number, &value), DIO_OK);
    EXPECT_EQ(value, expected) << number;
  }
}

TEST_F(DioGetStatusFolders, HasTheTrueCountOfOutputsBehindThreeMoreInputs) {
  make("din", 99, {97, 98, 99});
  make("dout", 2, {2});
  DioStatusAll all = {};
  EXPECT_EQ(dio_getStatus(&all), DIO_OK);
  EXPECT_EQ(all.in.count, 99U);
  EXPECT_EQ(all.out.count, 2U);
  EXPECT_THAT(all.out.bits, ElementsAreArray(bits_of({2})));
}

// ---- Switching all at once ----

class DioSetStatus : public DioTest {
 protected:
  void SetUp() override {
    DioTest::SetUp();
    if (!IsSkipped()) driver().add("dout3");
  }

  static std::vector<DioOperation> written(uint32_t number, const std::string& value,
                                           int error = 0) {
    const std::string file = "dout" + std::to_string(number) + "/value";
    return use_of(file, "w", {{"write", file, value, error}});
  }
};

TEST_F(DioSetStatus, SwitchesAllOutputsInOrder) {
  const DioStatus status = {3, {0x05}};
  EXPECT_EQ(dio_setStatusOut(&status), DIO_OK);
  std::vector<DioOperation> expected;
  for (const auto& [number, value] : {std::pair(1U, "1"), {2U, "0"}, {3U, "1"}}) {
    for (const DioOperation& operation : written(number, value)) expected.push_back(operation);
  }
  EXPECT_THAT(driver().take_operations(), ElementsAreArray(expected));
}

TEST_F(DioSetStatus, LeavesThoseAboveTheCount) {
  const DioStatus status = {1, {0xFF}};
  EXPECT_EQ(dio_setStatusOut(&status), DIO_OK);
  EXPECT_EQ(driver().contents("dout1/value"), "1");
  EXPECT_EQ(driver().contents("dout2/value"), "0");
}

TEST_F(DioSetStatus, DoesNothingForNone) {
  const DioStatus status = {0, {0xFF}};
  EXPECT_EQ(dio_setStatusOut(&status), DIO_OK);
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioSetStatus, EndsAtTheFirstThatCannotBeSwitched) {
  driver().fail("write", "dout2/value", EIO);
  const DioStatus status = {3, {0x07}};
  EXPECT_EQ(dio_setStatusOut(&status), DIO_ERR_IO);
  EXPECT_EQ(driver().contents("dout1/value"), "1");
  EXPECT_EQ(driver().contents("dout2/value"), "0");
  EXPECT_EQ(driver().contents("dout3/value"), "0");
  EXPECT_THAT(log_.take(), ElementsAre(not_written(std::string(kDriver) + "dout2/value", EIO)));
}

TEST_F(DioSetStatus, EndsAtAnOutputThatIsNotThere) {
  const DioStatus status = {4, {0x0F}};
  EXPECT_EQ(dio_setStatusOut(&status), DIO_ERR_NOENT);
  EXPECT_THAT(log_.take(),
              ElementsAre(failed("open", std::string(kDriver) + "dout4/value", ENOENT)));
}

TEST_F(DioSetStatus, SwitchesAllThoughCancelled) {
  const DioStatus status = {3, {0x07}};
  EXPECT_TRUE(support::finishes_though_cancelled([&] { dio_setStatusOut(&status); }));
  for (const char* file : {"dout1/value", "dout2/value", "dout3/value"}) {
    EXPECT_EQ(driver().contents(file), "1") << file;
  }
}

TEST_F(DioSetStatus, UndoesWhatGetStatusHasRead) {
  driver().set_contents("dout2/value", "1");
  DioStatus status = {};
  ASSERT_EQ(dio_getStatusOut(&status), DIO_OK);
  const DioStatus off = {3, {}};
  ASSERT_EQ(dio_setStatusOut(&off), DIO_OK);
  EXPECT_EQ(driver().contents("dout2/value"), "0");
  EXPECT_EQ(dio_setStatusOut(&status), DIO_OK);
  EXPECT_EQ(driver().contents("dout2/value"), "1");
  EXPECT_EQ(driver().contents("dout1/value"), "0");
}

}  // namespace
