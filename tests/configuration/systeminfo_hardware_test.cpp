// Hardware type, extension board, PoE and SIM holder.

#include <rkutils/systeminfo.h>

#include <filesystem>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/case_name.h"
#include "support/for_nobody.h"
#include "support/in_child.h"
#include "support/without_override.h"
#include "systeminfo_fixture.h"

namespace {

using support::in_child;

// The type is remembered for the life of a process, so that each test asks for it in a child.
std::string type_in_child() {
  return in_child([] { return std::to_string(dwhw()); });
}

using Dwhw = HardwareTest;

struct Text {
  const char* name;
  std::string text;
  int number;
};

// What files with these texts give as numbers.
auto numbers() {
  return testing::Values(
      Text{"Plain", "18\n", 18}, Text{"NoNewline", "18", 18}, Text{"Zero", "0\n", 0},
      Text{"WhiteSpace", " \t\n18 \n", 18}, Text{"Negative", "-5\n", -5},
      Text{"TextBehind", "18a\n", 18}, Text{"TwoLines", "18\n19\n", 18},
      Text{"NoNumber", "abc\n", 0}, Text{"Hexadecimal", "0x12\n", 0},
      Text{"Largest", "2147483647", 2147483647},
      Text{"AboveTheLargest", "2147483648", -2147483647 - 1},
      Text{"BelowTheSmallest", "-2147483649", 2147483647}, Text{"Wraps", "4294967298", 2},
      Text{"Empty", "", -1}, Text{"OnlyWhiteSpace", " \r\n\t\n", -1},
      Text{"BeginsWithNul",
           std::string("\0"
                       "18\n",
                       4),
           -1},
      Text{"Huge", "18" + std::string(1000000, ' ') + "9", 18});
}

class DwhwText : public HardwareTest, public testing::WithParamInterface<Text> {};

TEST_P(DwhwText, GivesItsNumber) {
  proc_.put(kType, GetParam().text);
  EXPECT_EQ(type_in_child(), std::to_string(GetParam().number));
}

INSTANTIATE_TEST_SUITE_P(Cases, DwhwText, numbers(), support::CaseName());

TEST_F(Dwhw, IsReadOnce) {
  proc_.put(kType, "18\n");
  const std::string types = in_child([this] {
    std::string all = std::to_string(dwhw());
    proc_.put(kType, "19\n");
    all += " " + std::to_string(dwhw());
    std::filesystem::remove(proc_.at(kType));
    return all + " " + std::to_string(dwhw());
  });
  EXPECT_EQ(types, "18 18 18");
}

TEST_F(Dwhw, IsReadOnceForAllThreads) {
  proc_.put(kType, "18\n");
  const std::string types = in_child([this] {
    int first = 0;
    std::thread([&] { first = dwhw(); }).join();
    proc_.put(kType, "19\n");
    return std::to_string(first) + " " + std::to_string(dwhw());
  });
  EXPECT_EQ(types, "18 18");
}

TEST_F(Dwhw, OfZeroIsRememberedToo) {
  proc_.put(kType, "none\n");
  const std::string types = in_child([this] {
    std::string all = std::to_string(dwhw());
    proc_.put(kType, "19\n");
    return all + " " + std::to_string(dwhw());
  });
  EXPECT_EQ(types, "0 0");
}

TEST_F(Dwhw, OfANegativeNumberIsRememberedToo) {
  proc_.put(kType, "-2\n");
  const std::string types = in_child([this] {
    std::string all = std::to_string(dwhw());
    proc_.put(kType, "19\n");
    return all + " " + std::to_string(dwhw());
  });
  EXPECT_EQ(types, "-2 -2");
}

TEST_F(Dwhw, IsLookedUpAgainAsLongAsItIsNotThere) {
  const std::string types = in_child([this] {
    std::string all = std::to_string(dwhw()) + " " + std::to_string(dwhw());
    proc_.put(kType, "\n");
    all += " " + std::to_string(dwhw());
    proc_.put(kType, "-1\n");
    all += " " + std::to_string(dwhw());
    proc_.put(kType, "18\n");
    return all + " " + std::to_string(dwhw());
  });
  EXPECT_EQ(types, "-1 -1 -1 -1 18");
}

TEST_F(Dwhw, IsUnknownForAFolder) {
  proc_.make_folder(kType);
  EXPECT_EQ(type_in_child(), "-1");
}

TEST_F(Dwhw, IsUnknownForAFileThatIsNotReadable) {
  proc_.put(kType, "18\n");
  ::chmod(proc_.at(kType).c_str(), 0200);
  const std::string type = in_child([] {
    int found = 0;
    support::run_without_override([&] { found = dwhw(); });
    return std::to_string(found);
  });
  EXPECT_EQ(type, "-1");
}

TEST_F(Dwhw, OverwritesReadfilesResultUntilItIsRemembered) {
  proc_.put(kType, "18\n");
  const std::string texts = in_child([] {
    const char* const text = readfile("/proc/sys/kernel/ostype");
    std::string all = text;
    dwhw();
    all += " ";
    all += text;
    readfile("/proc/sys/kernel/ostype");
    dwhw();
    return all + " " + text;
  });
  EXPECT_EQ(texts, "Linux 18 Linux");
}

using GetExtensionVariant = HardwareTest;

class GetExtensionVariantText : public HardwareTest, public testing::WithParamInterface<Text> {};

TEST_P(GetExtensionVariantText, GivesItsNumber) {
  proc_.put(kVariant, GetParam().text);
  EXPECT_EQ(get_extension_variant(), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(Cases, GetExtensionVariantText, numbers(), support::CaseName());

TEST_F(GetExtensionVariant, IsReadEachTime) {
  EXPECT_EQ(get_extension_variant(), -1);
  proc_.put(kVariant, "1\n");
  EXPECT_EQ(get_extension_variant(), 1);
  proc_.put(kVariant, "2\n");
  EXPECT_EQ(get_extension_variant(), 2);
  proc_.make_folder(kVariant);
  EXPECT_EQ(get_extension_variant(), -1);
}

TEST_F(GetExtensionVariant, OverwritesReadfilesResult) {
  proc_.put(kVariant, "1\n");
  const char* const text = readfile("/proc/sys/kernel/ostype");
  get_extension_variant();
  EXPECT_STREQ(text, "1");
}

struct Device {
  const char* name;
  const char* type;     // nullptr for a file that is not there
  const char* variant;  // likewise
  int poe;
};

class HasPoe : public HardwareTest, public testing::WithParamInterface<Device> {};

TEST_P(HasPoe, DependsOnTypeAndVariant) {
  if (GetParam().type != nullptr) proc_.put(kType, GetParam().type);
  if (GetParam().variant != nullptr) proc_.put(kVariant, GetParam().variant);
  EXPECT_EQ(in_child([] { return std::to_string(has_poe()); }), std::to_string(GetParam().poe));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HasPoe,
    testing::Values(Device{"WithIt", "18\n", "0\n", 1}, Device{"OtherVariant", "18\n", "1\n", 0},
                    Device{"NegativeVariant", "18\n", "-1\n", 0},
                    Device{"VariantOfNoNumber", "18\n", "abc\n", 1},
                    Device{"EmptyVariant", "18\n", "\n", 0},
                    Device{"NoExtensionBoard", "18\n", nullptr, 0},
                    Device{"TypeBefore", "17\n", "0\n", 0}, Device{"TypeBehind", "19\n", "0\n", 0},
                    Device{"TypeZero", "0\n", "0\n", 0}, Device{"NoType", nullptr, "0\n", 0},
                    Device{"Nothing", nullptr, nullptr, 0}),
    support::CaseName());

using HasPoeReading = HardwareTest;

TEST_F(HasPoeReading, LooksAtTheVariantOfItsTypeOnly) {
  proc_.put(kType, "17\n");
  proc_.put(kVariant, "0\n");
  const auto text_after = [] {
    const char* const text = readfile("/proc/sys/kernel/ostype");
    has_poe();
    return std::string(text);
  };
  EXPECT_EQ(in_child(text_after), "17");
  proc_.put(kType, "18\n");
  EXPECT_EQ(in_child(text_after), "0");
}

TEST_F(HasPoeReading, ReadsTheVariantEachTime) {
  proc_.put(kType, "18\n");
  proc_.put(kVariant, "0\n");
  const std::string results = in_child([this] {
    std::string all = std::to_string(has_poe());
    proc_.put(kVariant, "1\n");
    return all + " " + std::to_string(has_poe());
  });
  EXPECT_EQ(results, "1 0");
}

class HasSimHolder : public SysteminfoTest {
 protected:
  static constexpr char kSim[] = "/dev/sim";
};

TEST_F(HasSimHolder, IsTrueWhereTheDeviceIsReadable) {
  EXPECT_EQ(has_sim_holder(), 0);
  put(kSim, "");
  EXPECT_EQ(has_sim_holder(), 1);
  std::filesystem::remove(kSim);
  EXPECT_EQ(has_sim_holder(), 0);
}

TEST_F(HasSimHolder, IsTrueForAnythingReadable) {
  std::filesystem::create_directory(kSim);
  EXPECT_EQ(has_sim_holder(), 1);
  std::filesystem::remove(kSim);
  ASSERT_EQ(::mkfifo(kSim, 0600), 0);
  EXPECT_EQ(has_sim_holder(), 1);
}

TEST_F(HasSimHolder, IsFalseForALinkThatLeadsNowhere) {
  std::filesystem::create_symlink("sim0", kSim);
  EXPECT_EQ(has_sim_holder(), 0);
  std::filesystem::create_symlink("null", "/dev/sim0");
  EXPECT_EQ(has_sim_holder(), 1);
  std::filesystem::remove("/dev/sim0");
}

TEST_F(HasSimHolder, IsFalseWhereTheDeviceIsNotReadable) {
  put(kSim, "");
  ::chmod(kSim, 0200);
  int found = 1;
  support::run_without_override([&] { found = has_sim_holder(); });
  EXPECT_EQ(found, 0);
}

TEST_F(HasSimHolder, AsksForTheRealUser) {
  put(kSim, "");
  ::chmod(kSim, 0600);
  int found = 1;
  support::run_for_nobody([&] { found = has_sim_holder(); });
  EXPECT_EQ(found, 0);
  ::chmod(kSim, 0644);
  support::run_for_nobody([&] { found = has_sim_holder(); });
  EXPECT_EQ(found, 1);
}

}  // namespace
