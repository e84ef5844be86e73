// Analogue inputs.

#include <rkutils/adc.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/kernel_folder.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"

namespace {

namespace fs = std::filesystem;

constexpr char kRaw[] = "/tmp/raw";
constexpr char kScale[] = "/tmp/scale";

// A float as the bits that it has.
std::uint32_t bits(float value) {
  std::uint32_t result = 0;
  static_assert(sizeof result == sizeof value);
  std::memcpy(&result, &value, sizeof result);
  return result;
}

// What a reading gives: its result, and the bits of what is stored.
struct Reading {
  int result;
  std::uint32_t stored;
};
bool operator==(const Reading& a, const Reading& b) {
  return a.result == b.result && a.stored == b.stored;
}
std::ostream& operator<<(std::ostream& stream, const Reading& reading) {
  float value = 0;
  std::memcpy(&value, &reading.stored, sizeof value);
  return stream << reading.result << ", " << value << " (0x" << std::hex << reading.stored << ")";
}

constexpr Reading kFailure = {-1, 0};

// Nothing may be logged, and no descriptor be left.
class AdcTest : public testing::Test {
 protected:
  void TearDown() override {
    for (const char* path : {kRaw, kScale}) fs::remove_all(path);
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  static Reading read(const char* raw_path, const char* scale_path) {
    float out = 12345;
    const int result = adc_read(raw_path, scale_path, &out);
    return {result, bits(out)};
  }
  static Reading read_without_scale() { return read(kRaw, nullptr); }
  static Reading read_with_scale() { return read(kRaw, kScale); }

 private:
  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_ = support::open_descriptors();
};

using AdcRead = AdcTest;

// ---- Raw values ----

struct Raw {
  const char* name;
  std::string text;
  Reading reading;
};

class AdcReadRaw : public AdcTest, public testing::WithParamInterface<Raw> {};

TEST_P(AdcReadRaw, GivesItsNumber) {
  support::put(kRaw, GetParam().text);
  EXPECT_EQ(read_without_scale(), GetParam().reading);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AdcReadRaw,
    testing::Values(
        Raw{"Plain", "100\n", {0, 0x42C80000}}, Raw{"NoLineFeed", "100", {0, 0x42C80000}},
        Raw{"Zero", "0\n", {0, 0}}, Raw{"One", "1\n", {0, 0x3F800000}},
        Raw{"Sign", "+7\n", {0, 0x40E00000}}, Raw{"LeadingZeros", "007\n", {0, 0x40E00000}},
        Raw{"WhiteSpace", " \t\n7 \n", {0, 0x40E00000}}, Raw{"Decimals", "7.9\n", {0, 0x40E00000}},
        Raw{"TextBehind", "7mV\n", {0, 0x40E00000}}, Raw{"TwoLines", "7\n8\n", {0, 0x40E00000}},
        Raw{"Hexadecimal", "0x10\n", {0, 0}}, Raw{"NoNumber", "abc\n", {0, 0}},
        Raw{"SignAlone", "-\n", {0, 0}}, Raw{"NegativeZero", "-0\n", {0, 0}},
        Raw{"TwoSigns", "--5\n", {0, 0}}, Raw{"Negative", "-1\n", kFailure},
        Raw{"NegativeBehindWhiteSpace", "  -1\n", kFailure},
        Raw{"Smallest", "-2147483648\n", kFailure},
        // As floats have it: 24 bits.
        Raw{"AllOf24Bits", "16777215\n", {0, 0x4B7FFFFF}},
        Raw{"OneOf25Bits", "16777217\n", {0, 0x4B800000}},
        Raw{"RoundsUp", "16777219\n", {0, 0x4B800002}},
        Raw{"Largest", "2147483647\n", {0, 0x4F000000}},
        // In 32 bits.
        Raw{"AboveTheLargest", "2147483648\n", kFailure}, Raw{"AllBits", "4294967295\n", kFailure},
        Raw{"Wraps", "4294967303\n", {0, 0x40E00000}},
        Raw{"WrapsFromBelow", "-4294967289\n", {0, 0x40E00000}}, Raw{"Empty", "", kFailure},
        Raw{"WhiteSpaceAlone", " \n\t\n", kFailure}, Raw{"BlankLine", "\n", kFailure},
        Raw{"BeginsWithNul",
            std::string("\0"
                        "7\n",
                        3),
            kFailure},
        Raw{"LastOf127Bytes", std::string(126, ' ') + "78", {0, 0x40E00000}},
        Raw{"Behind127Bytes", std::string(127, ' ') + "7", kFailure},
        Raw{"CutAt127Bytes", std::string(126, '0') + "12", {0, 0x3F800000}},
        Raw{"Huge", "7" + std::string(100000, ' '), {0, 0x40E00000}}),
    support::CaseName());

TEST_F(AdcRead, FailsWithoutTheRawValue) {
  EXPECT_EQ(read_without_scale(), kFailure);
  fs::create_directory(kRaw);
  EXPECT_EQ(read_without_scale(), kFailure);
  EXPECT_EQ(read("", nullptr), kFailure);
  EXPECT_EQ(read("/tmp/missing/raw", kScale), kFailure);
}

TEST_F(AdcRead, FailsWhereTheRawValueIsNotReadable) {
  support::put(kRaw, "100\n");
  ::chmod(kRaw, 0200);
  Reading reading = {};
  support::run_without_override([&] { reading = read_without_scale(); });
  EXPECT_EQ(reading, kFailure);
}

TEST_F(AdcRead, FailsWhereTheDriverDoes) {
  support::put(kRaw, "100\n");
  Reading reading = {};
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO}},
                                  [&] { reading = read_without_scale(); });
  EXPECT_EQ(reading, kFailure);
}

TEST_F(AdcRead, ReadsAgainAfterASignal) {
  support::put(kRaw, "100\n");
  for (const auto call : {support::SystemCall::kOpen, support::SystemCall::kRead}) {
    Reading reading = {};
    support::run_with_failing_calls({{call, EINTR, 0, 3}}, [&] { reading = read_without_scale(); });
    EXPECT_EQ(reading, (Reading{0, bits(100.0F)}));
  }
}

TEST_F(AdcRead, OpensNothingForOtherPrograms) {
  support::put(kRaw, "12\n");
  support::put(kScale, "0.5\n");
  EXPECT_THAT(support::descriptor_flags_at(support::SystemCall::kRead, [] { read_with_scale(); }),
              testing::AllOf(testing::SizeIs(testing::Ge(2U)), testing::Each(FD_CLOEXEC)));
}

// ---- Scales ----

struct Scale {
  const char* name;
  const char* raw;
  std::string text;
  Reading reading;
};

class AdcReadScale : public AdcTest, public testing::WithParamInterface<Scale> {};

TEST_P(AdcReadScale, IsAFactor) {
  support::put(kRaw, GetParam().raw);
  support::put(kScale, GetParam().text);
  EXPECT_EQ(read_with_scale(), GetParam().reading);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AdcReadScale,
    testing::Values(
        Scale{"Half", "1000\n", "0.5\n", {0, 0x43FA0000}},
        Scale{"One", "7\n", "1\n", {0, 0x40E00000}},
        Scale{"NoLineFeed", "7\n", "1", {0, 0x40E00000}},
        Scale{"OfADriver", "1638\n", "0.439453125\n", {0, 0x4433F4C0}},
        Scale{"WhiteSpace", "7\n", " \t1.0 \n", {0, 0x40E00000}},
        Scale{"Exponent", "7\n", "1e2\n", {0, 0x442F0000}},
        Scale{"TextBehind", "7\n", "1.0V\n", {0, 0x40E00000}},
        Scale{"TwoLines", "7\n", "1.0\n2.0\n", {0, 0x40E00000}},
        Scale{"Negative", "7\n", "-1.0\n", {0, 0xC0E00000}}, Scale{"Zero", "7\n", "0\n", {0, 0}},
        Scale{"NoNumber", "7\n", "abc\n", {0, 0}}, Scale{"ZeroOfZero", "0\n", "0.5\n", {0, 0}},
        // The scale is rounded to a float, and so is the product.
        Scale{"Tenth", "1\n", "0.1\n", {0, 0x3DCCCCCD}},
        Scale{"TenthOfThree", "3\n", "0.1\n", {0, 0x3E99999A}},
        Scale{"TenthOfNine", "9\n", "0.1\n", {0, 0x3F666667}},
        Scale{"RoundedBefore", "16777215\n", "1.00000001\n", {0, 0x4B7FFFFF}},
        Scale{"RoundedBeforeUp", "3\n", "1.00000006\n", {0, 0x40400002}},
        Scale{"RawRoundedBefore", "16777217\n", "3\n", {0, 0x4C400000}},
        Scale{"Tiny", "1\n", "1e-45\n", {0, 1}}, Scale{"TooTiny", "1\n", "1e-60\n", {0, 0}},
        Scale{"TooLarge", "1\n", "1e60\n", {0, 0x7F800000}},
        Scale{"Infinite", "1\n", "inf\n", {0, 0x7F800000}},
        Scale{"Hexadecimal", "1\n", "0x10\n", {0, 0x41800000}},
        Scale{"LastOf127Bytes", "1\n", std::string(126, ' ') + "78", {0, 0x40E00000}},
        Scale{"Behind127Bytes", "1\n", std::string(127, ' ') + "7", kFailure},
        Scale{"Empty", "1\n", "", kFailure}, Scale{"WhiteSpaceAlone", "1\n", " \n", kFailure},
        Scale{"OfANegativeValue", "-1\n", "-1\n", kFailure},
        Scale{"OfAnEmptyValue", "\n", "1\n", kFailure}),
    support::CaseName());

TEST_F(AdcRead, FailsWithoutTheScale) {
  support::put(kRaw, "100\n");
  EXPECT_EQ(read_with_scale(), kFailure);
  EXPECT_EQ(read(kRaw, ""), kFailure);
  fs::create_directory(kScale);
  EXPECT_EQ(read_with_scale(), kFailure);
}

TEST_F(AdcRead, FailsWhereTheScaleIsNotReadable) {
  support::put(kRaw, "100\n");
  support::put(kScale, "1\n");
  ::chmod(kScale, 0200);
  Reading reading = {};
  support::run_without_override([&] { reading = read_with_scale(); });
  EXPECT_EQ(reading, kFailure);
}

TEST_F(AdcRead, TakesTheSameFileTwice) {
  support::put(kRaw, "12\n");
  EXPECT_EQ(read(kRaw, kRaw), (Reading{0, bits(144)}));
}

// ---- Without a path, without room for the result ----

TEST_F(AdcRead, RefusesNull) {
  support::put(kRaw, "100\n");
  EXPECT_EQ(read(nullptr, nullptr), kFailure);
  EXPECT_EQ(read(nullptr, kRaw), kFailure);
  EXPECT_EQ(adc_read(kRaw, nullptr, nullptr), -1);
  EXPECT_EQ(adc_read(kRaw, kRaw, nullptr), -1);
  EXPECT_EQ(adc_read(nullptr, nullptr, nullptr), -1);
}

TEST_F(AdcRead, WorksOnASmallStack) {
  support::put(kRaw, "100\n");
  Reading reading = {};
  support::run_on_small_stack([&] { reading = read(kRaw, kRaw); });
  EXPECT_EQ(reading, (Reading{0, bits(10000)}));
}

TEST_F(AdcRead, FinishesThoughItsThreadIsCancelled) {
  support::put(kRaw, "12\n");
  support::put(kScale, "0.5\n");
  Reading reading = {};
  EXPECT_TRUE(support::finishes_though_cancelled([&] { reading = read_with_scale(); }));
  EXPECT_EQ(reading, (Reading{0, bits(6)}));
}

TEST_F(AdcRead, FailsWithoutDescriptors) {
  support::put(kRaw, "100\n");
  Reading reading = {};
  {
    const support::NoMoreDescriptors none;
    reading = read_without_scale();
  }
  EXPECT_EQ(reading, kFailure);
}

// ---- Hardware families ----

class Dw4600Adc : public AdcTest {
 protected:
  static constexpr char kDevice[] = "bus/iio/devices/iio:device0/";

  void set_raw(const std::string& text) const {
    sys_.put(std::string(kDevice) + "in_voltage0_raw", text);
  }
  void set_scale(const std::string& text) const {
    sys_.put(std::string(kDevice) + "in_voltage_scale", text);
  }
  std::string raw_path() const { return sys_.at(std::string(kDevice) + "in_voltage0_raw"); }

  static Reading read_voltage(const char* raw_path) {
    float out = 12345;
    const int result = dw4600_adc_read(raw_path, &out);
    return {result, bits(out)};
  }

  const support::KernelFolder sys_{"/sys"};
};

TEST_F(Dw4600Adc, IsSupportedWhereItsInputIsReadable) {
  EXPECT_EQ(dw4600_adc_supported(), 0);
  set_scale("0.5\n");
  EXPECT_EQ(dw4600_adc_supported(), 0);
  set_raw("1000\n");
  EXPECT_EQ(raw_path(), "/sys/bus/iio/devices/iio:device0/in_voltage0_raw");
  EXPECT_EQ(dw4600_adc_supported(), 1);
  set_raw("");
  EXPECT_EQ(dw4600_adc_supported(), 1);
  fs::remove(raw_path());
  EXPECT_EQ(dw4600_adc_supported(), 0);
}

TEST_F(Dw4600Adc, IsSupportedForTheRealUser) {
  set_raw("1000\n");
  ::chmod(raw_path().c_str(), 0600);
  int supported = -1;
  support::run_for_nobody([&] { supported = dw4600_adc_supported(); });
  EXPECT_EQ(supported, 0);
  ::chmod(raw_path().c_str(), 0644);
  support::run_for_nobody([&] { supported = dw4600_adc_supported(); });
  EXPECT_EQ(supported, 1);
}

TEST_F(Dw4600Adc, GivesAVoltage) {
  set_raw("1000\n");
  set_scale("0.5\n");
  EXPECT_EQ(read_voltage(raw_path().c_str()), (Reading{0, 0x466D5600}));  // 15189.5
}

struct Voltage {
  const char* name;
  const char* raw;
  const char* scale;
  std::uint32_t stored;
};

class Dw4600AdcVoltage : public Dw4600Adc, public testing::WithParamInterface<Voltage> {};

TEST_P(Dw4600AdcVoltage, IsTheFloatNextToTheProduct) {
  set_raw(GetParam().raw);
  set_scale(GetParam().scale);
  EXPECT_EQ(read_voltage(raw_path().c_str()), (Reading{0, GetParam().stored}));
}

// The factor in double precision, over a product of floats: in all of these but the first three a
// float for the factor gives another (but in the one that no float can hold), and in those with a
// scale of 0.1 doubles throughout do.
INSTANTIATE_TEST_SUITE_P(Cases, Dw4600AdcVoltage,
                         testing::Values(Voltage{"OfZero", "0", "0.5", 0},
                                         Voltage{"OfOne", "1", "1", 0x41F30831},
                                         Voltage{"OfTheLargest", "2147483647", "1", 0x51730831},
                                         Voltage{"Of29", "29", "1", 0x445C3F6D},
                                         Voltage{"Of45", "45", "1", 0x44AAE1C3},
                                         Voltage{"Of4095", "4095", "1", 0x47F2F901},
                                         Voltage{"Of21Tenths", "21", "0.1", 0x427F2F02},
                                         Voltage{"Of53Tenths", "53", "0.1", 0x4321023B},
                                         Voltage{"TooLarge", "1", "1e38", 0x7F800000}),
                         support::CaseName());

TEST_F(Dw4600Adc, ReadsAnyInputWithTheScaleOfAll) {
  set_scale("1\n");
  support::put(kRaw, "2\n");
  EXPECT_EQ(read_voltage(kRaw), (Reading{0, bits(static_cast<float>(2 * 30.379))}));
}

TEST_F(Dw4600Adc, FailsWithZero) {
  EXPECT_EQ(read_voltage(raw_path().c_str()), kFailure);
  set_raw("1000\n");
  EXPECT_EQ(read_voltage(raw_path().c_str()), kFailure);
  set_scale("");
  EXPECT_EQ(read_voltage(raw_path().c_str()), kFailure);
  set_scale("0.5\n");
  set_raw("-1\n");
  EXPECT_EQ(read_voltage(raw_path().c_str()), kFailure);
  EXPECT_EQ(read_voltage(nullptr), kFailure);
  EXPECT_EQ(read_voltage("/tmp/missing"), kFailure);
}

TEST_F(Dw4600Adc, RefusesANullResult) {
  set_raw("1000\n");
  set_scale("0.5\n");
  EXPECT_EQ(dw4600_adc_read(raw_path().c_str(), nullptr), -1);
  EXPECT_EQ(dw4600_adc_read(nullptr, nullptr), -1);
}

class Dw41x0Adc : public AdcTest {
 protected:
  static Reading read_voltage(const char* raw_path) {
    float out = 12345;
    const int result = dw41x0_adc_read(raw_path, &out);
    return {result, bits(out)};
  }
};

TEST_F(Dw41x0Adc, GivesAVoltage) {
  support::put(kRaw, "100\n");
  EXPECT_EQ(read_voltage(kRaw), (Reading{0, bits(2856.1F)}));
}

class Dw41x0AdcVoltage : public Dw41x0Adc, public testing::WithParamInterface<Voltage> {};

TEST_P(Dw41x0AdcVoltage, IsTheFloatNextToTheProduct) {
  support::put(kRaw, GetParam().raw);
  EXPECT_EQ(read_voltage(kRaw), (Reading{0, GetParam().stored}));
}

INSTANTIATE_TEST_SUITE_P(Cases, Dw41x0AdcVoltage,
                         testing::Values(Voltage{"OfZero", "0", nullptr, 0},
                                         Voltage{"OfOne", "1", nullptr, 0x41E47CEE},
                                         Voltage{"OfTheLargest", "2147483647", nullptr, 0x51647CEE},
                                         Voltage{"Of5", "5", nullptr, 0x430ECE14},
                                         Voltage{"Of11", "11", nullptr, 0x439D15E3},
                                         Voltage{"Of4095", "4095", nullptr, 0x47E46EA6}),
                         support::CaseName());

// There is no scale for it.
TEST_F(Dw41x0Adc, DoesNotLookAtAScale) {
  const support::KernelFolder sys("/sys");
  sys.put("bus/iio/devices/iio:device0/in_voltage_scale", "0.5\n");
  support::put(kRaw, "100\n");
  EXPECT_EQ(read_voltage(kRaw), (Reading{0, bits(2856.1F)}));
}

TEST_F(Dw41x0Adc, FailsWithZero) {
  EXPECT_EQ(read_voltage(kRaw), kFailure);
  support::put(kRaw, "\n");
  EXPECT_EQ(read_voltage(kRaw), kFailure);
  support::put(kRaw, "-100\n");
  EXPECT_EQ(read_voltage(kRaw), kFailure);
  EXPECT_EQ(read_voltage(nullptr), kFailure);
}

TEST_F(Dw41x0Adc, RefusesANullResult) {
  support::put(kRaw, "100\n");
  EXPECT_EQ(dw41x0_adc_read(kRaw, nullptr), -1);
  EXPECT_EQ(dw41x0_adc_read(nullptr, nullptr), -1);
}

}  // namespace
