// A file of settings as an object, and what it prints.

#include <rkutils/config_reader.h>
#include <rkutils/hash_table.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/interruption.h"
#include "support/language_allocation.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/standard_output.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using support::kIs;
using support::standard_output_of;
using testing::ElementsAre;

// ---- What the class is ----

using Reader = ConfigReader;
static_assert(kIs<&Reader::initialize, bool (Reader::*)(String const&, unsigned long)>);
static_assert(kIs<&Reader::cleanup, void (Reader::*)()>);
static_assert(
    kIs<&Reader::getValue, String const& (Reader::*)(String const&, String const&) const>);
static_assert(kIs<&Reader::getValueAsInt, long (Reader::*)(String const&, long) const>);
static_assert(kIs<&Reader::getIndexedValue,
                  String const& (Reader::*)(String const&, unsigned long, String const&) const>);
static_assert(
    kIs<&Reader::getIndexedValueAsInt, long (Reader::*)(String const&, unsigned long, long) const>);
static_assert(kIs<&Reader::add, bool (Reader::*)(String const&, String const&)>);
static_assert(kIs<&Reader::strcpystrip, int (Reader::*)(char*, int, char*, int)>);
static_assert(kIs<&Reader::indexof, int (Reader::*)(char*, char)>);
static_assert(!std::is_copy_constructible_v<Reader> && !std::is_copy_assignable_v<Reader>);
static_assert(std::has_virtual_destructor_v<Reader>);
static_assert(sizeof(Reader) == 2 * sizeof(void*), "the table of virtual members, the settings");

TEST(ConfigReaderClass, HasItsVirtualMembersBehindTheDestructorsTwo) {
  EXPECT_THAT(
      std::vector(
          {support::virtual_slot(&Reader::initialize), support::virtual_slot(&Reader::cleanup),
           support::virtual_slot(&Reader::getValue), support::virtual_slot(&Reader::getValueAsInt),
           support::virtual_slot(&Reader::getIndexedValue),
           support::virtual_slot(&Reader::getIndexedValueAsInt)}),
      ElementsAre(2U, 3U, 4U, 5U, 6U, 7U));
}

TEST(ConfigReaderClass, HasTwoMembersThatAreNotVirtual) {
  EXPECT_GT(support::virtual_slot(&Reader::add), 100U);
  EXPECT_GT(support::virtual_slot(&Reader::strcpystrip), 100U);
  EXPECT_GT(support::virtual_slot(&Reader::indexof), 100U);
}

// ---- What the tests share ----

constexpr char kPath[] = "/tmp/settings.conf";

void write_file(const std::string& contents) {
  std::ofstream file(kPath, std::ios::binary);
  file << contents;
}

// The value as a std::string; "(none)" where there is none.
std::string value_of(const ConfigReader& reader, const std::string& key) {
  const String none("(none)");
  String const& value = reader.getValue(key.c_str(), none);
  return std::string(value.c_str(), static_cast<std::size_t>(value.length()));
}

class ConfigReaderTest : public testing::Test {
 protected:
  ConfigReaderTest() : descriptors_before_(support::open_descriptors()) {}
  void TearDown() override {
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
    std::filesystem::remove_all(kPath);
  }

  // Reads a file with these contents and returns what is printed.
  std::string print_of(const std::string& contents, unsigned long size = 16) {
    write_file(contents);
    bool success = false;
    std::string output = standard_output_of([&] { success = reader_.initialize(kPath, size); });
    EXPECT_TRUE(success);
    return output;
  }

  // The same for what is read without a message.
  void read(const std::string& contents, unsigned long size = 16) {
    EXPECT_EQ(print_of(contents, size), "");
  }

  [[nodiscard]] std::string value(const std::string& key) const { return value_of(reader_, key); }

  ConfigReader reader_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// ---- Lines ----

// One setting, what the file holds, and what becomes of it.
struct Line {
  const char* name;
  const char* contents;
  const char* key;
  const char* value;
};

class ConfigReaderLine : public ConfigReaderTest, public testing::WithParamInterface<Line> {};

TEST_P(ConfigReaderLine, IsASetting) {
  read(GetParam().contents);
  EXPECT_EQ(value(GetParam().key), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    With, ConfigReaderLine,
    testing::Values(
        Line{"KeyAndValue", "key=value\n", "key", "value"},
        Line{"NoLineEnd", "key=value", "key", "value"},
        Line{"ACarriageReturn", "key=value\r\n", "key", "value"},
        Line{"BlanksEverywhere", "a b = 1 2 \n", "ab", "1 2"},
        Line{"TabsAndControlCharacters", "\ta\t\v\fb\x01=\x1f\t1\t2\x01\x02\n", "ab", "1\t2"},
        Line{"ManyBlanksInTheKey", "a     b   c     =1\n", "abc", "1"},
        Line{"OneBlankBeforeTheKey", " key=1\n", "key", "1"},
        Line{"TwoBlanksBeforeTheKey", "  key=1\n", " key", "1"},
        Line{"ThreeBlanksBeforeTheKey", "   key=1\n", " key", "1"},
        Line{"ABlankAndATabBeforeTheKey", " \tkey=1\n", "\tkey", "1"},
        Line{"ATabAndABlankBeforeTheKey", "\t key=1\n", " key", "1"},
        Line{"ManyBlanksBeforeAndInTheKey", "     k e   y  =1\n", " key", "1"},
        Line{"NoKey", "=1\n", "", "1"}, Line{"OneBlankAsKey", " =1\n", "", "1"},
        Line{"TwoBlanksAsKey", "  =1\n", " ", "1"}, Line{"ThreeBlanksAsKey", "   =1\n", " ", "1"},
        Line{"NoValue", "x=\n", "x", ""}, Line{"NoValueAndNoLineEnd", "x=", "x", ""},
        Line{"BlanksAsValue", "x= \t \r\n", "x", ""}, Line{"NeitherKeyNorValue", "=\n", "", ""},
        Line{"SeveralEqualsSigns", "a=b=c==\n", "a", "b=c=="},
        Line{"AnEqualsSignAsValue", "a = = \n", "a", "="},
        Line{"ACommentSignLater", "a#b=c#d\n", "a#b", "c#d"},
        Line{"ABlankBeforeTheCommentSign", " #a=1\n", "#a", "1"},
        Line{"QuotesAndBackslashes", "a=\" b \\n\\\n", "a", "\" b \\n\\"},
        Line{"PercentSigns", "a%sb%n=%s%n\n", "a%sb%n", "%s%n"},
        Line{"BytesAbove127", "k\xc3\xa9y\x80\xff=\xff\xc3\xa4 \x80\n", "k\xc3\xa9y\x80\xff",
             "\xff\xc3\xa4 \x80"},
        Line{"TheLowestBytesThatAreKept", "!k!=!v!\n", "!k!", "!v!"}),
    support::CaseName());

TEST_F(ConfigReaderTest, SkipsCommentsAndLinesWithoutAnEqualsSign) {
  read("#a=1\n# b=2\n##=3\nword\n\n   \nc=3\n#\n");
  EXPECT_EQ(value("c"), "3");
  for (const char* absent : {"#a", "a", "#b", "b", "##", "#", "word", "", " "}) {
    EXPECT_EQ(value(absent), "(none)") << absent;
  }
}

TEST_F(ConfigReaderTest, ReadsAnEmptyFile) {
  read("");
  EXPECT_EQ(value("a"), "(none)");
}

TEST_F(ConfigReaderTest, FindsNoKeyThatDiffers) {
  read("key=1\n");
  for (const char* absent : {"Key", "KEY", "ke", "keys", " key", ""}) {
    EXPECT_EQ(value(absent), "(none)") << absent;
  }
}

TEST_F(ConfigReaderTest, KeepsTheFirstOfEqualKeysAndPrintsTheOthers) {
  EXPECT_EQ(print_of("x=1\nx=2\ny=1\n x = a b \nx x=0\nxx=%s%n\nx=\n=1\n=2\n"),
            "cfg: Ignoring duplicate tag:x=2\n"
            "cfg: Ignoring duplicate tag:x=a b\n"
            "cfg: Ignoring duplicate tag:xx=%s%n\n"
            "cfg: Ignoring duplicate tag:x=\n"
            "cfg: Ignoring duplicate tag:=2\n");
  EXPECT_EQ(value("x"), "1");
  EXPECT_EQ(value("y"), "1");
  EXPECT_EQ(value("xx"), "0");
  EXPECT_EQ(value(""), "1");
}

// ---- Lines that are longer than a piece ----

TEST_F(ConfigReaderTest, ReadsALineOf1022CharactersWhole) {
  const std::string text(1020, 'v');
  read("k=" + text + "\na=1\n");
  EXPECT_EQ(value("k"), text);
  EXPECT_EQ(value("a"), "1");
}

TEST_F(ConfigReaderTest, CutsAValueWhereThePieceEnds) {
  read("k=" + std::string(1020, 'v') + "w\na=1\n");
  EXPECT_EQ(value("k"), std::string(1020, 'v'));
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("w"), "(none)");
}

TEST_F(ConfigReaderTest, TakesEachPieceForALineOfItsOwn) {
  const std::string filler(1020, 'v');
  read("k=" + filler + "key=value\n#" + std::string(1021, 'c') + "comment=goes on\n" +
       "k2=" + filler.substr(1) + "#no=setting\nk3=" + filler.substr(1) + "  two = blanks  \n");
  EXPECT_EQ(value("key"), "value");
  EXPECT_EQ(value("comment"), "goes on");
  EXPECT_EQ(value("#no"), "(none)");
  EXPECT_EQ(value("no"), "(none)");
  EXPECT_EQ(value(" two"), "blanks");
}

TEST_F(ConfigReaderTest, SkipsAPieceThatEndsBeforeItsEqualsSign) {
  read(std::string(1022, 'k') + "=1\n");
  EXPECT_EQ(value(std::string(1022, 'k')), "(none)");
  EXPECT_EQ(value(""), "1");
}

TEST_F(ConfigReaderTest, TakesTheLongestKey) {
  read(std::string(1021, 'k') + "=1\n");
  EXPECT_EQ(value(std::string(1021, 'k')), "");
}

TEST_F(ConfigReaderTest, EndsALineAtANul) {
  read(std::string("a=1\0b=2\nc\0=3\n\0d=4\ne=5\n", 22));
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("e"), "5");
  for (const char* absent : {"b", "c", "", "d"}) EXPECT_EQ(value(absent), "(none)") << absent;
}

// ---- Any file at all, beside a slow and simple reading of it ----

bool is_blank(char byte) { return static_cast<unsigned char>(byte) <= 32; }

// What the reader holds and prints.
struct Expected {
  std::map<std::string, std::string> settings;
  std::string printed;
};

void expect_line(std::string line, Expected& expected) {
  const std::size_t equals = line.find('=');
  if (line.empty() || line[0] == '#' || equals == std::string::npos) return;
  std::string key = line.substr(0, equals);
  for (std::size_t i = 0; i < key.size();) {
    if (is_blank(key[i])) {
      key.erase(i, 1);
      i = 1;
    } else {
      ++i;
    }
  }
  std::string value = line.substr(equals + 1);
  while (!value.empty() && is_blank(value.front())) value.erase(0, 1);
  while (!value.empty() && is_blank(value.back())) value.pop_back();
  if (!expected.settings.emplace(key, value).second) {
    expected.printed += "cfg: Ignoring duplicate tag:" + key + "=" + value + "\n";
  }
}

Expected expect_file(const std::string& contents) {
  Expected expected;
  for (std::size_t at = 0; at < contents.size();) {
    const std::size_t newline = contents.find('\n', at);
    const std::size_t line_end = newline == std::string::npos ? contents.size() : newline + 1;
    const std::string piece = contents.substr(at, std::min<std::size_t>(line_end - at, 1022));
    at += piece.size();
    expect_line(piece.substr(0, piece.find('\0')), expected);
  }
  return expected;
}

class ConfigReaderAnyFile : public ConfigReaderTest {
 protected:
  void expect_as_in_the_model(const std::string& contents) {
    const Expected expected = expect_file(contents);
    ASSERT_EQ(print_of(contents, 8), expected.printed);
    for (const auto& [key, text] : expected.settings) ASSERT_EQ(value(key), text);
  }

  std::mt19937 random_{1};  // the same files each time

  std::string random_text(std::size_t length, const std::string& alphabet) {
    std::uniform_int_distribution<std::size_t> index(0, alphabet.size() - 1);
    std::string text(length, '\0');
    for (char& byte : text) byte = alphabet[index(random_)];
    return text;
  }
};

TEST_F(ConfigReaderAnyFile, OfLinesOfEveryLengthAroundTheBounds) {
  for (std::size_t pieces = 1; pieces <= 3; ++pieces) {
    for (std::size_t length = pieces * 1022 - 5; length <= pieces * 1022 + 5; ++length) {
      const std::string line = "key = " + std::string(length - 6, 'v');
      expect_as_in_the_model(line + "\na=1\n");
      expect_as_in_the_model(line);
      expect_as_in_the_model(std::string(length, 'k') + " = value\n");
      expect_as_in_the_model(std::string(length, ' ') + "key = value\n");
      expect_as_in_the_model("key=1" + std::string(length, ' ') + "2\n=3");
      expect_as_in_the_model("#" + std::string(length - 3, '=') + "a=1");
    }
  }
}

TEST_F(ConfigReaderAnyFile, OfBytesThatMatter) {
  const std::string alphabet = std::string("=== \t\n\n#ab\0\r\x1f\x80\xff%", 16);
  for (int i = support::rounds(3000); i > 0; --i)
    expect_as_in_the_model(random_text(random_() % 60, alphabet));
}

TEST_F(ConfigReaderAnyFile, OfAllBytes) {
  std::string alphabet;
  for (int byte = 0; byte <= UCHAR_MAX; ++byte) alphabet += static_cast<char>(byte);
  for (int i = support::rounds(200); i > 0; --i)
    expect_as_in_the_model(random_text(random_() % 5000, alphabet));
}

TEST_F(ConfigReaderAnyFile, OfLongLines) {
  const std::string alphabet = std::string(200, 'x') + "= #";
  for (int i = support::rounds(300); i > 0; --i) {
    expect_as_in_the_model(random_text(random_() % 4000, alphabet) + "\n" +
                           random_text(random_() % 4000, alphabet));
  }
}

TEST_F(ConfigReaderTest, ReadsTenThousandKeys) {
  std::string contents;
  for (int i = 0; i < 10000; ++i) {
    contents += "interface." + std::to_string(i) + ".name = wan" + std::to_string(i) + "\n";
  }
  read(contents, 10000);
  for (unsigned long i = 0; i < 10000; ++i) {
    ASSERT_EQ(reader_.getIndexedValue("interface.%lu.name", i, String::EMPTY()),
              String(("wan" + std::to_string(i)).c_str()));
  }
}

TEST_F(ConfigReaderTest, TakesEverySizeForAnyNumberOfKeys) {
  std::string contents;
  for (int i = 0; i < 500; ++i)
    contents += "key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  for (const unsigned long size : {0UL, 1UL, 2UL, 3UL, 100UL, 1000UL}) {
    read(contents, size);
    EXPECT_EQ(value("key0"), "0");
    EXPECT_EQ(value("key499"), "499");
  }
}

TEST_F(ConfigReaderTest, ReadsOnASmallStack) {
  write_file("k=" + std::string(3000, 'v') + "\na=1\n");
  bool success = false;
  long number = 0;
  support::run_on_small_stack([&] {
    success = reader_.initialize(kPath, 16);
    number = reader_.getIndexedValueAsInt("%c", 'a', 0);
  });
  EXPECT_TRUE(success);
  EXPECT_EQ(number, 1);
}

TEST_F(ConfigReaderTest, ReadsThoughCancelled) {
  write_file("a=1\na=2\nb=3\n");
  bool success = false;
  bool finished = false;
  standard_output_of([&] {
    finished = support::finishes_though_cancelled([&] { success = reader_.initialize(kPath, 16); });
  });
  EXPECT_TRUE(finished);
  EXPECT_TRUE(success);
  EXPECT_EQ(value_of(reader_, "b"), "3");
}

// ---- What is not a file of settings ----

TEST_F(ConfigReaderTest, TakesAFolderForAnEmptyFile) {
  bool success = false;
  EXPECT_EQ(standard_output_of([&] { success = reader_.initialize("/tmp", 16); }), "");
  EXPECT_TRUE(success);
  EXPECT_TRUE(reader_.add("a", "1"));
}

class ConfigReaderUnopened : public ConfigReaderTest {
 protected:
  // Returns what is printed.
  std::string fail_with(const String& path) {
    read("old=1\n");
    bool success = true;
    std::string output = standard_output_of([&] { success = reader_.initialize(path, 16); });
    EXPECT_FALSE(success);
    EXPECT_EQ(value("old"), "(none)");
    return output;
  }

  static std::string message(const std::string& path) {
    return "cfg: Error in config file " + path + ", line 0:\ncfg:   \n";
  }
};

TEST_F(ConfigReaderUnopened, FilesAreReported) {
  EXPECT_EQ(fail_with("/tmp/none"), message("/tmp/none"));
  EXPECT_EQ(fail_with("/tmp/settings.conf/below"), message("/tmp/settings.conf/below"));
  EXPECT_EQ(fail_with(""), message(""));
  EXPECT_EQ(fail_with("/tmp/%s%n"), message("/tmp/%s%n"));
  const std::string too_long = "/tmp/" + std::string(5000, 'x');
  EXPECT_EQ(fail_with(too_long.c_str()), message(too_long));
}

TEST_F(ConfigReaderUnopened, FilesMayBeSockets) {
  const rkutils::internal::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr address = {AF_UNIX, "/tmp/socket"};
  ASSERT_EQ(::bind(socket.get(), &address, sizeof address), 0);
  EXPECT_EQ(fail_with("/tmp/socket"), message("/tmp/socket"));
  ::unlink("/tmp/socket");
}

TEST_F(ConfigReaderUnopened, FilesMayBeTooMany) {
  write_file("a=1\n");
  bool success = true;
  const std::string output = standard_output_of([&] {
    const support::NoMoreDescriptors none;
    success = reader_.initialize(kPath, 16);
  });
  EXPECT_FALSE(success);
  EXPECT_EQ(output, message(kPath));
}

TEST_F(ConfigReaderUnopened, FilesLeaveAReaderWithoutSettings) {
  fail_with("/tmp/none");
  EXPECT_EQ(value("a"), "(none)");
  EXPECT_TRUE(reader_.add("a", "1"));
  EXPECT_EQ(value("a"), "1");
}

// A pipe, so that the reading is caught in the act.
TEST_F(ConfigReaderTest, ClosesItsFileOnExec) {
  ASSERT_EQ(::mkfifo(kPath, S_IRUSR | S_IWUSR), 0);
  std::thread thread([this] { reader_.initialize(kPath, 16); });
  std::ofstream writer(kPath);  // waits for the reader
  writer << "a=1\nb=";
  writer.flush();
  std::vector<int> open_on_exec;
  for (const auto& [descriptor, target] : support::open_descriptors()) {
    const bool closes = (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
    if (target == kPath && !closes) open_on_exec.push_back(descriptor);
  }
  writer << "2\n";
  writer.close();
  thread.join();
  EXPECT_THAT(open_on_exec, testing::SizeIs(1)) << "the writer's alone";
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("b"), "2");
}

TEST_F(ConfigReaderTest, ReadsToTheEndThroughSignals) {
  ASSERT_EQ(::mkfifo(kPath, S_IRUSR | S_IWUSR), 0);
  const support::Interruption interruption;
  bool success = false;
  std::thread thread([&] { success = reader_.initialize(kPath, 16); });
  support::Interruption::send(thread);  // while it opens
  std::ofstream writer(kPath);
  writer << "a=1\nb=";
  writer.flush();
  support::Interruption::send(thread);  // while it reads
  writer << "2\nc=3\n";
  writer.close();
  thread.join();
  EXPECT_TRUE(success);
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("b"), "2");
  EXPECT_EQ(value("c"), "3");
}

// ---- Reading again, cleaning up ----

TEST_F(ConfigReaderTest, DropsWhatItHeldWhenItReadsAgain) {
  read("a=1\nb=2\n");
  read("b=3\n");
  EXPECT_EQ(value("a"), "(none)");
  EXPECT_EQ(value("b"), "3");
}

TEST_F(ConfigReaderTest, ReadsTheFileThatOneOfItsValuesNames) {
  read(std::string("next=") + kPath + "\n");
  String const& path = reader_.getValue("next", String::EMPTY());
  EXPECT_TRUE(reader_.initialize(path, 16));
  EXPECT_EQ(value("next"), kPath);
}

TEST_F(ConfigReaderTest, IsEmptyAfterItsCleanUp) {
  read("a=1\n");
  reader_.cleanup();
  EXPECT_EQ(value("a"), "(none)");
  reader_.cleanup();
  EXPECT_FALSE(reader_.add("a", "1"));
  read("a=2\n");
  EXPECT_EQ(value("a"), "2");
}

TEST_F(ConfigReaderTest, FreesAllThatItHeld) {
  write_file("a=1\nb=2\nlonger=than the room of a small text\n");
  const language_allocation::Watch watch;
  {
    ConfigReader reader;
    reader.initialize(kPath, 16);
    reader.initialize(kPath, 2);
    reader.add("c", "3");
  }
  EXPECT_EQ(watch.unfreed(), 0);
}

TEST_F(ConfigReaderTest, AsksForTheBucketsOfTheSizeItIsGiven) {
  write_file("");
  const language_allocation::Watch watch;
  reader_.initialize(kPath, 100);
  EXPECT_THAT(watch.requests(),
              ElementsAre(language_allocation::Request{false, sizeof(INStringHashTable)},
                          language_allocation::Request{true, 128 * sizeof(void*)}));
}

// Notes what it holds whenever it is cleaned up.
class DerivedReader : public ConfigReader {
 public:
  explicit DerivedReader(bool calls_base) : calls_base_(calls_base) {}

  void cleanup() override {
    cleanups_.push_back(value_of(*this, "a"));
    if (calls_base_) ConfigReader::cleanup();
  }

  [[nodiscard]] const std::vector<std::string>& cleanups() const { return cleanups_; }

 private:
  bool calls_base_;
  std::vector<std::string> cleanups_;
};

TEST_F(ConfigReaderTest, CleansUpAsADerivedClassHasItBeforeItReads) {
  write_file("a=1\n");
  DerivedReader reader(true);
  reader.initialize(kPath, 16);
  EXPECT_THAT(reader.cleanups(), ElementsAre("(none)"));
  reader.initialize(kPath, 16);
  EXPECT_THAT(reader.cleanups(), ElementsAre("(none)", "1"));
  EXPECT_EQ(value_of(reader, "a"), "1");
}

TEST_F(ConfigReaderTest, DropsWhatADerivedClassHasNotCleanedUp) {
  const language_allocation::Watch watch;
  {
    DerivedReader reader(false);
    write_file("a=1\n");
    reader.initialize(kPath, 16);
    write_file("b=2\n");
    reader.initialize(kPath, 16);
    EXPECT_EQ(value_of(reader, "a"), "(none)");
    EXPECT_EQ(value_of(reader, "b"), "2");
  }
  EXPECT_EQ(watch.unfreed(), 0);
}

TEST_F(ConfigReaderTest, IsDestroyedThroughAPointer) {
  write_file("a=1\n");
  const language_allocation::Watch watch;
  {
    const std::unique_ptr<ConfigReader> reader = std::make_unique<DerivedReader>(true);
    reader->initialize(kPath, 16);
  }
  EXPECT_EQ(watch.unfreed(), 0);
}

// Notes which of its getters are called.
class NotingReader : public ConfigReader {
 public:
  String const& getValue(String const& key, String const& def) const override {
    calls_.emplace_back("getValue");
    return ConfigReader::getValue(key, def);
  }
  long getValueAsInt(String const& key, long def) const override {
    calls_.emplace_back("getValueAsInt");
    return ConfigReader::getValueAsInt(key, def);
  }
  String const& getIndexedValue(String const& key, unsigned long index,
                                String const& def) const override {
    calls_.emplace_back("getIndexedValue");
    return ConfigReader::getIndexedValue(key, index, def);
  }
  long getIndexedValueAsInt(String const& key, unsigned long index, long def) const override {
    calls_.emplace_back("getIndexedValueAsInt");
    return ConfigReader::getIndexedValueAsInt(key, index, def);
  }

  [[nodiscard]] const std::vector<std::string>& calls() const { return calls_; }

 private:
  mutable std::vector<std::string> calls_;
};

TEST_F(ConfigReaderTest, CallsNoGetterAsADerivedClassHasIt) {
  write_file("a1=5\n");
  NotingReader reader;
  reader.initialize(kPath, 16);
  EXPECT_TRUE(reader.add("b1", "6"));
  EXPECT_THAT(reader.calls(), testing::IsEmpty());
  const String def;
  EXPECT_EQ(reader.getValue("a1", def), "5");
  EXPECT_EQ(reader.getValueAsInt("a1", 0), 5);
  EXPECT_EQ(reader.getIndexedValue("a%lu", 1, def), "5");
  EXPECT_EQ(reader.getIndexedValueAsInt("a%lu", 1, 0), 5);
  EXPECT_THAT(reader.calls(),
              ElementsAre("getValue", "getValueAsInt", "getIndexedValue", "getIndexedValueAsInt"));
}

// ---- Exceptions ----

TEST_F(ConfigReaderTest, IsEmptyAfterASizeThatIsRefused) {
  for (const unsigned long size : {268435457UL, ULONG_MAX}) {
    read("a=1\n");
    EXPECT_EQ(standard_output_of([&] {
                EXPECT_THROW(reader_.initialize(kPath, size), std::bad_array_new_length);
              }),
              "");
    EXPECT_EQ(value("a"), "(none)");
    EXPECT_FALSE(reader_.add("a", "1"));
    reader_.cleanup();
  }
}

class ConfigReaderWithoutMemory : public ConfigReaderTest {
 protected:
  // Reads with the `nth` allocation failing; false when there are not so many. No value needs
  // memory for its text: String ends the process when there is none.
  bool read_with_failing(unsigned long nth) {
    read("old=\n");
    write_file("a=\nb=\nlonger.than.some.small.text.key=\n");
    const String path(kPath);
    bool failed = false;
    bool success = false;
    bool thrown = false;
    const std::string output = standard_output_of([&] {
      const support::FailingAllocation failing(nth);
      try {
        success = reader_.initialize(path, 4);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      failed = failing.happened();
    });
    EXPECT_EQ(value("old"), "(none)");
    if (thrown) {
      EXPECT_EQ(output, "");
      EXPECT_EQ(value("a"), "(none)");
      EXPECT_FALSE(reader_.add("a", ""));
      ++thrown_;
    } else {
      EXPECT_TRUE(success);
      EXPECT_EQ(output, "");
      EXPECT_EQ(value("longer.than.some.small.text.key"), "");
    }
    reader_.cleanup();
    return failed;
  }

  int thrown_ = 0;
};

TEST_F(ConfigReaderWithoutMemory, ThrowsAndIsEmpty) {
  const language_allocation::Watch watch;
  unsigned long nth = 1;
  while (read_with_failing(nth)) ++nth;
  EXPECT_EQ(watch.unfreed(), 0);
  EXPECT_EQ(thrown_, 2 + 3 * 3) << "the table's two, and three for each setting";
}

TEST_F(ConfigReaderWithoutMemory, AddsNothing) {
  read("a=1\n");
  const String key("b");
  const String value_added("2");
  for (unsigned long nth = 1; nth <= 3; ++nth) {
    const support::FailingAllocation failing(nth);
    EXPECT_THROW(reader_.add(key, value_added), std::bad_alloc) << nth;
  }
  EXPECT_EQ(value_added.useCount(), 1);
  EXPECT_EQ(value("b"), "(none)");
  EXPECT_EQ(value("a"), "1");
  EXPECT_TRUE(reader_.add(key, value_added));
}

TEST_F(ConfigReaderWithoutMemory, RefusesADuplicateAllTheSame) {
  read("a=1\n");
  const String key("a");
  const String second("2");
  bool added = true;
  const std::string output = standard_output_of([&] {
    std::printf("one line, for which stdio has its buffer\n");
    const support::FailingAllocation failing(1);
    added = reader_.add(key, second);
  });
  EXPECT_EQ(output, "one line, for which stdio has its buffer\ncfg: Ignoring duplicate tag:a=2\n");
  EXPECT_FALSE(added);
  EXPECT_EQ(value("a"), "1");
}

TEST_F(ConfigReaderTest, AllocatesNothingForADuplicate) {
  const auto allocations_of = [this](const std::string& contents) {
    write_file(contents);
    const String path(kPath);
    unsigned long allocations = 0;
    standard_output_of([&] {
      std::printf("one line, for which stdio has its buffer\n");
      const unsigned long before = support::allocation_count();
      reader_.initialize(path, 16);
      allocations = support::allocation_count() - before;
    });
    return allocations;
  };
  EXPECT_EQ(allocations_of("a=1\na=2\na=3\n"), allocations_of("a=1\n"));
}

// ---- Adding ----

TEST_F(ConfigReaderTest, AddsASettingAsItIs) {
  read("");
  EXPECT_TRUE(reader_.add("  a key ", "  a value\n"));
  EXPECT_EQ(value("  a key "), "  a value\n");
  EXPECT_TRUE(reader_.add("", ""));
  EXPECT_EQ(value(""), "");
}

TEST_F(ConfigReaderTest, AddsACopyThatSharesTheText) {
  read("");
  String key("k");
  String text("v");
  EXPECT_TRUE(reader_.add(key, text));
  EXPECT_EQ(text.useCount(), 2);
  EXPECT_NE(&reader_.getValue(key, String::EMPTY()), &text);
  key += 'k';
  text += 'v';
  EXPECT_EQ(value("k"), "v");
}

TEST_F(ConfigReaderTest, AddsNoSecondSettingOfAKey) {
  read("a=1\n");
  bool added = true;
  EXPECT_EQ(standard_output_of([&] { added = reader_.add("a", " %s\n"); }),
            "cfg: Ignoring duplicate tag:a= %s\n\n");
  EXPECT_FALSE(added);
  EXPECT_EQ(value("a"), "1");
}

TEST_F(ConfigReaderTest, AddsNoSecondSettingOfAKeyThoughCancelled) {
  read("a=1\n");
  bool added = true;
  bool finished = false;
  const std::string output = standard_output_of([&] {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // written at once
    finished = support::finishes_though_cancelled([&] { added = reader_.add("a", "2"); });
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
  });
  EXPECT_TRUE(finished);
  EXPECT_FALSE(added);
  EXPECT_EQ(output, "cfg: Ignoring duplicate tag:a=2\n");
}

TEST_F(ConfigReaderTest, AddsWhatIsBehindANulInAValueButNotInAKey) {
  read("");
  EXPECT_TRUE(reader_.add(String("k").concat("\0x", 2), String("v").concat("\0y", 2)));
  EXPECT_EQ(value("k"), std::string("v\0y", 3));
}

TEST_F(ConfigReaderTest, AddsOneOfItsOwnValues) {
  read("a=1\n");
  EXPECT_TRUE(reader_.add("b", reader_.getValue("a", String::EMPTY())));
  EXPECT_EQ(value("b"), "1");
}

// ---- Before initialize() ----

TEST_F(ConfigReaderTest, GivesDefaultsBeforeItIsInitialized) {
  const String def("default");
  bool added = true;
  EXPECT_EQ(standard_output_of([&] {
              added = reader_.add("a", "1");
              reader_.cleanup();
            }),
            "");
  EXPECT_FALSE(added);
  EXPECT_EQ(&reader_.getValue("a", def), &def);
  EXPECT_EQ(&reader_.getIndexedValue("a%lu", 1, def), &def);
  EXPECT_EQ(reader_.getValueAsInt("a", -7), -7);
  EXPECT_EQ(reader_.getIndexedValueAsInt("a%lu", 1, -7), -7);
}

// ---- Getting ----

TEST_F(ConfigReaderTest, ReturnsTheStoredValueOrTheDefaultItself) {
  read("a=1\nif2.name=wan\n");
  const String def("default");
  String const& stored = reader_.getValue("a", def);
  EXPECT_NE(&stored, &def);
  EXPECT_EQ(&reader_.getValue("a", String::EMPTY()), &stored);
  EXPECT_EQ(&reader_.getIndexedValue("%c", 'a', def), &stored);
  EXPECT_EQ(&reader_.getValue("b", def), &def);
  EXPECT_EQ(&reader_.getIndexedValue("if%lu.name", 3, def), &def);
}

TEST_F(ConfigReaderTest, PutsTheIndexIntoThePattern) {
  read("if2.name=wan\nif" + std::to_string(ULONG_MAX) + "=last\n100%=all\n0x1f=hexadecimal\n");
  const String def("default");
  EXPECT_EQ(reader_.getIndexedValue("if%lu.name", 2, def), "wan");
  EXPECT_EQ(reader_.getIndexedValue("if%lu", ULONG_MAX, def), "last");
  EXPECT_EQ(reader_.getIndexedValue("100%%", 7, def), "all");
  EXPECT_EQ(reader_.getIndexedValue("%#lx", 31, def), "hexadecimal");
  EXPECT_EQ(reader_.getIndexedValue("if2.name", 9, def), "wan");
}

TEST_F(ConfigReaderTest, TakesAPatternThatMakesTheEmptyKey) {
  read("=5\n");
  const String def("default");
  for (const char* pattern : {"", "%.0lu"}) {
    EXPECT_EQ(reader_.getIndexedValue(pattern, 0, def), "5") << pattern;
    EXPECT_EQ(reader_.getIndexedValueAsInt(pattern, 0, 7), 5) << pattern;
  }
}

TEST_F(ConfigReaderTest, GivesTheDefaultForAPatternBeyondAnyKey) {
  read("=5\n");
  const String def("default");
  for (const char* pattern : {"%2147483647lu%%", "%9999999999lu"}) {
    EXPECT_EQ(&reader_.getIndexedValue(pattern, 1, def), &def) << pattern;
    EXPECT_EQ(reader_.getIndexedValueAsInt(pattern, 1, 7), 7) << pattern;
  }
}

TEST_F(ConfigReaderTest, LooksForWhatIsBeforeANul) {
  read("a1=5\n");
  const String key = String("a1").concat("\0hidden", 7);
  const String pattern = String("a%lu").concat("\0%s", 3);
  EXPECT_EQ(reader_.getValue(key, String::EMPTY()), "5");
  EXPECT_EQ(reader_.getValueAsInt(key, 0), 5);
  EXPECT_EQ(reader_.getIndexedValue(pattern, 1, String::EMPTY()), "5");
  EXPECT_EQ(reader_.getIndexedValueAsInt(pattern, 1, 0), 5);
}

// The empty text is the one String that threads could share unseen, and its count is a plain
// number: a getter that made use of it would be seen here to change it.
TEST_F(ConfigReaderTest, AnswersTwoThreadsAtOnce) {
  constexpr int kRounds = 5000;
  read("a1=5\n=6\n");
  const long uses_before = String::EMPTY().useCount();
  int wrong[2] = {};
  std::atomic<int> asking = 2;
  const auto ask = [this, &asking](int& wrong_answers) {
    const String key("a1");
    const String pattern("a%lu");
    const String empty_pattern("%.0lu");
    const String def("default");
    for (int i = 0; i < kRounds; ++i) {
      const bool right = reader_.getValue(key, def)[0] == '5' &&
                         reader_.getValueAsInt(key, 0) == 5 &&
                         reader_.getIndexedValue(pattern, 1, def)[0] == '5' &&
                         reader_.getIndexedValueAsInt(pattern, 1, 0) == 5 &&
                         &reader_.getIndexedValue(pattern, 2, def) == &def &&
                         reader_.getIndexedValueAsInt(empty_pattern, 0, 0) == 6;
      if (!right) ++wrong_answers;
    }
    --asking;
  };
  std::thread one(ask, std::ref(wrong[0]));
  std::thread other(ask, std::ref(wrong[1]));
  int uses_seen = 0;
  while (asking > 0) {
    if (String::EMPTY().useCount() != uses_before) ++uses_seen;
  }
  one.join();
  other.join();
  EXPECT_THAT(wrong, ElementsAre(0, 0));
  EXPECT_EQ(uses_seen, 0);
  EXPECT_EQ(String::EMPTY().useCount(), uses_before);
}

TEST_F(ConfigReaderTest, DoesNotTakeAPlainKeyForAPattern) {
  read("if%lu=plain\n");
  EXPECT_EQ(value("if%lu"), "plain");
  EXPECT_EQ(reader_.getValueAsInt("if%s", 7), 7);
}

TEST_F(ConfigReaderTest, MakesKeysOfAnyLength) {
  const std::string key = std::string(999, '0') + "7";
  read(key + "=1\n");
  EXPECT_EQ(reader_.getIndexedValueAsInt("%01000lu", 7, 0), 1);
}

// A value, and the number that both getters make of it.
struct Number {
  const char* name;
  const char* text;
  long number;
};

class ConfigReaderNumber : public ConfigReaderTest, public testing::WithParamInterface<Number> {};

TEST_P(ConfigReaderNumber, IsTheSameForBothGetters) {
  read(std::string("a1=") + GetParam().text + "\n");
  EXPECT_EQ(reader_.getValueAsInt("a1", 77), GetParam().number);
  EXPECT_EQ(reader_.getIndexedValueAsInt("a%lu", 1, 77), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ConfigReaderNumber,
    testing::Values(Number{"On", "on", 1}, Number{"OnInCapitals", "ON", 1},
                    Number{"OnWithOneCapital", "On", 1}, Number{"OnWithTheOtherCapital", "oN", 1},
                    Number{"Off", "off", 0}, Number{"OffInCapitals", "OFF", 0},
                    Number{"OffWithOneCapital", "Off", 0}, Number{"OffWithAnother", "oFf", 0},
                    Number{"ADigit", "5", 5}, Number{"Zero", "0", 0}, Number{"One", "1", 1},
                    Number{"TheEmptyText", "", 0}, Number{"ANegative", "-12", -12},
                    Number{"Hexadecimal", "1Fh", 31}, Number{"HexadecimalWithX", "1fx", 31},
                    Number{"Binary", "101b", 5}, Number{"Octal", "17o", 15},
                    Number{"TheLargest", "2147483647", 2147483647},
                    Number{"TheSmallest", "-2147483648", -2147483647L - 1},
                    Number{"OneThatWraps", "4294967298", 2},
                    // Words that are neither: numbers without meaning, and always these.
                    Number{"OnAndMore", "on!", ('!' - '0') + 10 * ('n' - '0') + 100 * ('o' - '0')},
                    Number{"Yes", "yes", ('e' - '0') + 10 * ('y' - '0')},
                    Number{"AnotherLetterAtTheEnd", "12m", 12}),
    support::CaseName());

TEST_F(ConfigReaderTest, GivesTheDefaultNumberForAnAbsentKey) {
  read("a=\n");
  for (const long def : {0L, 1L, -1L, LONG_MAX, LONG_MIN}) {
    EXPECT_EQ(reader_.getValueAsInt("b", def), def);
    EXPECT_EQ(reader_.getIndexedValueAsInt("a%lu", 1, def), def);
  }
}

// ---- The two text helpers ----

struct Strip {
  const char* name;
  const char* source;
  int count;
  int size;
  int result;
  const char* copied;
};

class ConfigReaderStrip : public ConfigReaderTest, public testing::WithParamInterface<Strip> {};

TEST_P(ConfigReaderStrip, CopiesWithoutBlanks) {
  // As large as it is said to be, so that the address sanitizer sees a byte too many.
  const auto size = static_cast<std::size_t>(std::max(GetParam().size, 0));
  const std::unique_ptr<char[]> destination(new char[size]);
  std::fill_n(destination.get(), size, '~');
  std::string source = GetParam().source;
  EXPECT_EQ(
      reader_.strcpystrip(destination.get(), GetParam().size, source.data(), GetParam().count),
      GetParam().result);
  EXPECT_EQ(source, GetParam().source);
  const std::string untouched(size, '~');
  const std::string copied = GetParam().copied;
  const std::string expected =
      GetParam().result == 0 ? untouched : copied + '\0' + untouched.substr(copied.size() + 1);
  EXPECT_EQ(std::string(destination.get(), size), expected);
}

INSTANTIATE_TEST_SUITE_P(Of, ConfigReaderStrip,
                         testing::Values(Strip{"BlanksAtBothEnds", "  ab  ", 4, 10, 1, "ab"},
                                         Strip{"MoreThanThereIs", "  ab  ", 5, 10, 0, ""},
                                         Strip{"PartOfTheBlanks", "  ab  ", 3, 10, 1, "ab"},
                                         Strip{"TheTextAlone", "  ab  ", 2, 10, 1, "ab"},
                                         Strip{"PartOfTheText", "  ab  ", 1, 10, 1, "a"},
                                         Strip{"NothingOfIt", "  ab  ", 0, 10, 1, ""},
                                         Strip{"NothingOfNothing", "", 0, 1, 1, ""},
                                         Strip{"OneOfNothing", "", 1, 10, 0, ""},
                                         Strip{"BlanksAlone", "   ", 0, 10, 1, ""},
                                         Strip{"OneOfBlanksAlone", "   ", 1, 10, 0, ""},
                                         Strip{"ABlankInside", "a b", 3, 10, 1, "a b"},
                                         Strip{"ABlankInsideThatEndsIt", "a b", 2, 10, 1, "a"},
                                         Strip{"OtherBlanks", " \tab\n ", 4, 10, 1, "\tab\n"},
                                         Strip{"WhatJustFits", "abcd", 4, 5, 1, "abcd"},
                                         Strip{"WhatDoesNotFit", "abcd", 4, 4, 0, ""},
                                         Strip{"WhatWouldFitWithoutItsBlanks", "a   ", 4, 4, 0, ""},
                                         Strip{"NoRoomAtAll", "", 0, 0, 0, ""},
                                         Strip{"ANegativeSize", "ab", 0, -1, 0, ""},
                                         Strip{"ANegativeCount", "ab", -1, 10, 0, ""},
                                         Strip{"TheSmallestCount", "ab", INT_MIN, 10, 0, ""},
                                         Strip{"TheLargestCount", "ab", INT_MAX, 10, 0, ""}),
                         support::CaseName());

// Made with new, so that the address sanitizer sees a byte too many read.
TEST_F(ConfigReaderTest, StripsATextWithoutANul) {
  const std::unique_ptr<char[]> source(new char[2]{'a', 'b'});
  char destination[4] = "~~~";
  EXPECT_EQ(reader_.strcpystrip(destination, sizeof destination, source.get(), 2), 1);
  EXPECT_STREQ(destination, "ab");
  const std::unique_ptr<char[]> blank_first(new char[2]{' ', 'c'});
  EXPECT_EQ(reader_.strcpystrip(destination, sizeof destination, blank_first.get(), 1), 1);
  EXPECT_STREQ(destination, "c");
  EXPECT_EQ(reader_.strcpystrip(destination, sizeof destination, source.get(), -1), 0);
  EXPECT_STREQ(destination, "c");
}

TEST_F(ConfigReaderTest, StripsATextInPlace) {
  char text[] = "  a b  ";
  EXPECT_EQ(reader_.strcpystrip(text, sizeof text, text, 5), 1);
  EXPECT_STREQ(text, "a b");
}

TEST_F(ConfigReaderTest, StripsNoNull) {
  char text[] = "ab";
  EXPECT_EQ(reader_.strcpystrip(nullptr, 10, text, 1), 0);
  EXPECT_EQ(reader_.strcpystrip(text, sizeof text, nullptr, 0), 0);
  EXPECT_STREQ(text, "ab");
}

TEST_F(ConfigReaderTest, FindsTheFirstPlaceOfACharacter) {
  char text[] = "a=b=\xff";
  EXPECT_EQ(reader_.indexof(text, 'a'), 0);
  EXPECT_EQ(reader_.indexof(text, '='), 1);
  EXPECT_EQ(reader_.indexof(text, '\xff'), 4);
  EXPECT_EQ(reader_.indexof(text, 'c'), -1);
  EXPECT_EQ(reader_.indexof(text, '\0'), -1);
  EXPECT_EQ(reader_.indexof(nullptr, 'a'), -1);
  char empty[] = "";
  EXPECT_EQ(reader_.indexof(empty, 'a'), -1);
}

}  // namespace
