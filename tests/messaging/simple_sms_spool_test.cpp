// Received messages: the spool, what is read from it, and what is removed.

#include <rkutils/export.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/simple_sms.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "../foundations/file_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/language_allocation.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

// Stands before the C library's. Some file systems tell no types; here an entry named "untyped" has
// none.
// NOLINTBEGIN(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)
extern "C" RK_API dirent* readdir(DIR* stream);
dirent* readdir(DIR* stream) {
  using Function = dirent*(DIR*);
#ifdef __GLIBC__
  constexpr const char* kName = "readdir64";  // what readdir() becomes where offsets could be small
#else
  constexpr const char* kName = "readdir";
#endif
  static auto* const next = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, kName));
  dirent* const entry = next(stream);
  if (entry != nullptr && std::strcmp(entry->d_name, "untyped") == 0) entry->d_type = DT_UNKNOWN;
  return entry;
}
// NOLINTEND(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)

namespace {

using namespace std::string_literals;
using rkutils::internal::UniqueFd;
using support::kIs;
using support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

// ---- What the class is ----

using Ids = std::vector<std::pair<long, std::string>>;
static_assert(kIs<&CSimpleSMS::send, int (CSimpleSMS::*)()>);
static_assert(kIs<&CSimpleSMS::RetrieveIncomingIds, void (*)(Ids&)>);
static_assert(kIs<&CSimpleSMS::getIncomingSMSById, CSimpleSMS* (*)(std::string const&)>);
static_assert(kIs<&CSimpleSMS::DeleteIncomingSMSById, int (*)(std::string const&)>);
static_assert(!std::is_polymorphic_v<CSimpleSMS> && std::is_standard_layout_v<CSimpleSMS>);
static_assert(std::is_copy_constructible_v<CSimpleSMS> && std::is_copy_assignable_v<CSimpleSMS>);

TEST(SimpleSms, IsEmptyAtFirst) {
  const CSimpleSMS sms;
  EXPECT_EQ(sms.address, "");
  EXPECT_EQ(sms.received, "");
  EXPECT_EQ(sms.text, "");
}

TEST(SimpleSms, TakesARecipientAndAText) {
  const CSimpleSMS sms("+49 30\0 1"s, "a\0text\n"s);
  EXPECT_EQ(sms.address, "+49 30\0 1"s);
  EXPECT_EQ(sms.received, "");
  EXPECT_EQ(sms.text, "a\0text\n"s);
}

// ---- The spool ----

constexpr char kSpool[] = "/var/spool/sms/incoming/";

LogLine unrecognized(const std::string& line) {
  return {LOG_DEBUG, "sms: Ignoring unrecognized line : \"" + line + "\""};
}

LogLine invalid(const std::string& id, int error) {
  return {LOG_DEBUG, "sms: file \"" + (kSpool + id) +
                         "\" not existing or invalid, errno=" + std::strerror(error)};
}

LogLine not_examined(const std::string& id, int error) {
  return {LOG_DEBUG, "Unable to stat " + (kSpool + id) + " - errno=" + std::strerror(error)};
}

class Spool : public FileTest {
 protected:
  Spool() { make_folders(kSpool); }
  ~Spool() override { std::filesystem::remove_all("/var/spool/sms"); }

  static std::string path_of(const std::string& id) { return kSpool + id; }
  static std::unique_ptr<CSimpleSMS> read(const std::string& id) {
    return std::unique_ptr<CSimpleSMS>(CSimpleSMS::getIncomingSMSById(id));
  }
};

// ---- Reading a message ----

struct Message {
  const char* name;
  std::string file;
  std::string address;
  std::string received;
  std::string text;
  std::vector<std::string> ignored = {};
};

class IncomingMessage : public Spool, public testing::WithParamInterface<Message> {};

TEST_P(IncomingMessage, IsReadFromItsFile) {
  errno = EIO;  // of some time before
  put(path_of("one"), GetParam().file);
  const std::unique_ptr<CSimpleSMS> sms = read("one");
  ASSERT_NE(sms, nullptr);
  EXPECT_EQ(sms->address, GetParam().address);
  EXPECT_EQ(sms->received, GetParam().received);
  EXPECT_EQ(sms->text, GetParam().text);
  std::vector<LogLine> expected;
  for (const std::string& line : GetParam().ignored) expected.push_back(unrecognized(line));
  EXPECT_EQ(log_.take(), expected);
}

const std::string kLong(3000, 'x');

INSTANTIATE_TEST_SUITE_P(
    Texts, IncomingMessage,
    testing::Values(Message{"Short", "From: +4930123\n\nHello\n", "+4930123", "", "Hello\n"},
                    Message{"WithoutANewline", "From: 1\n\nHello", "1", "", "Hello"},
                    Message{"Empty", "From: 1\n\n", "1", "", ""},
                    Message{"WhiteSpaceAround", "From: 1\n\n \t Hello \r\n \n\n", "1", "",
                            " \t Hello \r\n \n\n"},
                    Message{"BeginningWithANewline", "From: 1\n\n\nHello", "1", "", "\nHello"},
                    Message{"WithEmptyLines", "From: 1\n\na\n\nb\n\n", "1", "", "a\n\nb\n\n"},
                    Message{"LikeAHeader", "From: 1\n\nFrom: 2\n", "1", "", "From: 2\n"},
                    Message{"WithNuls", "From: 1\n\na\0\0b\n\0"s, "1", "", "a\0\0b\n\0"s},
                    Message{"HighBytes", "From: 1\n\n\xff\x80\xc3\xa4", "1", "",
                            "\xff\x80\xc3\xa4"},
                    Message{"LongerThanTheSmallFileBuffer", "From: 1\n\n" + kLong + "\n", "1", "",
                            kLong + "\n"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Headers, IncomingMessage,
    testing::Values(
        Message{"None", "\n\nHello", "", "", "Hello"},
        Message{"Received", "Received: 2026-11-21\n\nx", "", "2026-11-21", "x"},
        Message{"Both", "From: 1\nReceived: 2026-11-21 09:00:00\n\nx", "1", "2026-11-21 09:00:00",
                "x"},
        Message{"BothTheOtherWayRound", "Received: now\nFrom: 1\n\nx", "1", "now", "x"},
        Message{"SeveralWords", "From: +49 30 123\n\nx", "+49 30 123", "", "x"},
        Message{"RunsOfSpaces", "   From:   1    2  \n\nx", "1 2", "", "x"},
        Message{"Twice", "From: 1\nReceived: a\nFrom: 2 3\nReceived: b\n\nx", "1 2 3", "a b", "x"},
        Message{"TabsInWords", "From: 1\t2\n\nx", "1\t2", "", "x"},
        Message{"CarriageReturns", "From: 1\r\n\nx", "1\r", "", "x"},
        Message{"Nuls", "From: a\0b \0\n\nx"s, "a\0b \0"s, "", "x"},
        Message{"HighBytes", "From: \xff\xc3\xa4\n\nx", "\xff\xc3\xa4", "", "x"},
        Message{"PercentSigns", "From: %s%n\n\nx", "%s%n", "", "x"},
        Message{"KeywordAsValue", "From: From: Received:\n\nx", "From: Received:", "", "x"},
        Message{"Long", "From: " + kLong + " " + kLong + "\n\nx", kLong + " " + kLong, "", "x"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    IgnoredLines, IncomingMessage,
    testing::Values(
        Message{"AnotherWord", "Subject: a  b\nFrom: 1\n\nx", "1", "", "x", {"Subject: a  b"}},
        Message{"KeywordAlone", "From:\nReceived:\n\nx", "", "", "x", {"From:", "Received:"}},
        Message{"KeywordAndSpaces", "From:  \n\nx", "", "", "x", {"From:  "}},
        Message{"SpacesAlone", "  \nFrom: 1\n\nx", "1", "", "x", {"  "}},
        Message{"EmptyLineAtFirst", "\nFrom: 1\n\nx", "1", "", "x", {""}},
        Message{
            "OtherLetters", "from: 1\nRECEIVED: 2\n\nx", "", "", "x", {"from: 1", "RECEIVED: 2"}},
        Message{
            "WithoutASpace", "From:1\nReceived:2 3\n\nx", "", "", "x", {"From:1", "Received:2 3"}},
        Message{"WithoutAColon", "From 1\n\nx", "", "", "x", {"From 1"}},
        Message{"TabBehindTheKeyword", "From:\t1 2\n\nx", "", "", "x", {"From:\t1 2"}},
        Message{"PercentSigns", "%s %n%d\n\nx", "", "", "x", {"%s %n%d"}},
        Message{"Quotes", "say \"a\"\n\nx", "", "", "x", {"say \"a\""}},
        Message{"UpToANul", "ab\0 cd\n\nx"s, "", "", "x", {"ab"}},
        Message{"BetweenOthers",
                "a 1\nFrom: 1\nb 2\nReceived: 2\nc\n\nx",
                "1",
                "2",
                "x",
                {"a 1", "b 2", "c"}}),
    support::CaseName());

using IncomingSms = Spool;

TEST_F(IncomingSms, IsReadWhole) {
  std::string text;
  const int lines = std::max(20000, support::rounds(200000));
  for (int line = 0; line < lines; ++line) text += "line " + std::to_string(line) + "\n";
  put(path_of("long"), "From: 1\n\n" + text);
  const std::unique_ptr<CSimpleSMS> sms = read("long");
  ASSERT_NE(sms, nullptr);
  EXPECT_TRUE(sms->text == text);
}

TEST_F(IncomingSms, HasAnyNameThatAFileHas) {
  for (const std::string& id :
       {"a b"s, "..."s, "-n"s, "%s"s, "\n"s, "\xff"s, std::string(255, 'n')}) {
    put(path_of(id), "From: 1\n\nx");
    EXPECT_NE(read(id), nullptr) << id;
    EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById(id), 0) << id;
  }
}

// The same, put together in another way: by what the lines are.
std::optional<CSimpleSMS> simple_message(const std::string& file) {
  const std::size_t end = file.find("\n\n");
  if (end == std::string::npos) return std::nullopt;
  CSimpleSMS sms("", file.substr(end + 2));
  for (std::string rest = file.substr(0, end) + "\n"; !rest.empty();) {
    std::vector<std::string> words(1);
    for (const char byte : rest.substr(0, rest.find('\n')) + " ") {
      if (byte != ' ') {
        words.back() += byte;
      } else if (!words.back().empty()) {
        words.emplace_back();
      }
    }
    rest.erase(0, rest.find('\n') + 1);
    words.pop_back();
    for (std::size_t i = 1; i < words.size(); ++i) {
      for (auto& [keyword, field] :
           {std::pair("From:"s, &sms.address), {"Received:"s, &sms.received}}) {
        if (words[0] == keyword) *field += (field->empty() ? "" : " ") + words[i];
      }
    }
  }
  return sms;
}

TEST_F(IncomingSms, OfRandomBytesIsWhatASimpleReaderMakesOfThem) {
  const std::vector<std::string> pieces = {"From:", "Received:", " ",  "  ", "\n",   "\n\n",
                                           "\0"s,   "a",         "\t", "\r", "\xff", "From: 1\n"};
  std::mt19937 random(11);
  const int rounds = support::rounds(1000);
  int messages = 0;
  for (int round = 0; round < rounds; ++round) {
    std::string file;
    for (auto count = random() % 24; count > 0; --count) file += pieces[random() % pieces.size()];
    put(path_of("random"), file);
    const std::unique_ptr<CSimpleSMS> sms = read("random");
    const std::optional<CSimpleSMS> expected = simple_message(file);
    ASSERT_EQ(sms != nullptr, expected.has_value()) << testing::PrintToString(file);
    if (!expected) continue;
    ++messages;
    ASSERT_EQ(sms->address, expected->address) << testing::PrintToString(file);
    ASSERT_EQ(sms->received, expected->received) << testing::PrintToString(file);
    ASSERT_EQ(sms->text, expected->text) << testing::PrintToString(file);
  }
  EXPECT_GT(messages, rounds / 10);
  log_.take();  // the cases above tell what is ignored
}

TEST_F(IncomingSms, IsNullForAFileWithoutAnEmptyLine) {
  for (const std::string& file : {""s, "\n"s, "a"s, "ab"s, "From: 1\n"s, "From: 1\nHello\n"s,
                                  "From: 1\r\n\r\nHello\r\n"s, "\n \n"s, "\n\0\n"s}) {
    put(path_of("one"), file);
    errno = EIO;  // of some time before
    EXPECT_EQ(read("one"), nullptr) << testing::PrintToString(file);
    EXPECT_THAT(log_.take(), ElementsAre(invalid("one", 0)));
  }
}

TEST_F(IncomingSms, IsNullForAFileThatIsNotThere) {
  EXPECT_EQ(read("missing"), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(invalid("missing", ENOENT)));
  const std::string too_long(256, 'n');
  EXPECT_EQ(read(too_long), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(invalid(too_long, ENAMETOOLONG)));
}

TEST_F(IncomingSms, IsNullForAFolder) {
  make_folders(path_of("folder"));
  for (const char* id : {"folder", ".", ".."}) {
    EXPECT_EQ(read(id), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(invalid(id, EISDIR)));
  }
}

TEST_F(IncomingSms, IsNullForAFileThatCannotBeOpened) {
  put(path_of("one"), "From: 1\n\nHello\n");
  ::chmod(path_of("one").c_str(), 0200);
  bool is_null = false;
  run_without_override([&] { is_null = read("one") == nullptr; });
  EXPECT_TRUE(is_null);
  EXPECT_THAT(log_.take(), ElementsAre(invalid("one", EACCES)));
}

TEST_F(IncomingSms, IsNullForAFileThatCannotBeReadToItsEnd) {
  put(path_of("one"), "From: 1\n\n" + std::string(100000, 'x'));
  for (const unsigned done : {0U, 1U, 5U}) {
    bool is_null = false;
    support::run_with_failing_calls({{support::SystemCall::kRead, EIO, done}},
                                    [&] { is_null = read("one") == nullptr; });
    EXPECT_TRUE(is_null);
    EXPECT_THAT(log_.take(), ElementsAre(invalid("one", EIO)));
  }
}

TEST_F(IncomingSms, WithoutADescriptorIsNull) {
  put(path_of("one"), "From: 1\n\nHello\n");
  const std::string id = "one";
  const CSimpleSMS* sms = nullptr;
  {
    const support::NoMoreDescriptors none;
    sms = CSimpleSMS::getIncomingSMSById(id);
  }
  EXPECT_EQ(sms, nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(invalid("one", EMFILE)));
}

TEST_F(IncomingSms, IsReadThroughSignals) {
  make_fifo(path_of("fifo"));
  const Interruption interruption;
  std::unique_ptr<CSimpleSMS> sms;
  std::thread reader([&] { sms = read("fifo"); });
  Interruption::send(reader);  // while it opens
  UniqueFd fifo(::open(path_of("fifo").c_str(), O_RDWR | O_CLOEXEC));
  UniqueFd writer(::open(path_of("fifo").c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(::write(writer.get(), "From: 1\n\n", 9), 9);
  Interruption::send(reader);  // while it reads
  EXPECT_EQ(::write(writer.get(), "x", 1), 1);
  writer.reset();
  fifo.reset();
  reader.join();
  ASSERT_NE(sms, nullptr);
  EXPECT_EQ(sms->address, "1");
  EXPECT_EQ(sms->text, "x");
}

TEST_F(IncomingSms, NeedsLittleStack) {
  put(path_of("one"), "From: 1\nother line\n\n" + std::string(300000, 'x'));
  std::unique_ptr<CSimpleSMS> sms;
  support::run_on_small_stack([&] { sms = read("one"); });
  ASSERT_NE(sms, nullptr);
  EXPECT_EQ(sms->text.size(), 300000U);
  EXPECT_THAT(log_.take(), ElementsAre(unrecognized("other line")));
}

TEST_F(IncomingSms, WithoutMemoryIsNullOrThrowsAndLeavesNothing) {
  const std::string id = "one";
  put(path_of(id), "From: " + std::string(100, 'a') + "\nReceived: " + std::string(100, 'b') +
                       "\n\n" + std::string(10000, 'x'));
  const LogLine out_of_memory = {LOG_ERR, "sms: Unable to allocate sms - out of memory!?"};
  int thrown = 0;
  int nulls = 0;
  for (unsigned long nth = 1;; ++nth) {
    const language_allocation::Watch watch;
    CSimpleSMS* sms = nullptr;
    bool threw = false;
    bool happened = false;
    {
      const support::FailingAllocation no_memory(nth);
      try {
        sms = CSimpleSMS::getIncomingSMSById(id);
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      happened = no_memory.happened();
    }
    const long unfreed = watch.unfreed();
    const std::unique_ptr<CSimpleSMS> owner(sms);
    const std::vector<LogLine> lines = log_.take();
    if (!happened) {
      ASSERT_NE(sms, nullptr);
      break;
    }
    EXPECT_EQ(sms, nullptr);
    EXPECT_EQ(unfreed, 0);
    if (threw) {
      ++thrown;
      EXPECT_THAT(lines, IsEmpty());
    } else {
      ++nulls;
      EXPECT_THAT(lines, ElementsAre(out_of_memory));
    }
  }
  EXPECT_EQ(nulls, 1);
  EXPECT_GT(thrown, 3);
}

// ---- Names that lead elsewhere ----

struct Elsewhere {
  const char* name;
  std::string id;
};

class IdOfNoSpoolFile : public Spool, public testing::WithParamInterface<Elsewhere> {
 protected:
  IdOfNoSpoolFile() {
    for (const std::string& path :
         {"/var/spool/sms/secret"s, path_of("folder/file"), path_of("one")}) {
      put(path, "From: 1\n\nsecret");
    }
  }
};

TEST_P(IdOfNoSpoolFile, IsNotRead) {
  EXPECT_EQ(read(GetParam().id), nullptr);
  // syslog() ends the path at a NUL.
  const std::string logged = GetParam().id.substr(0, GetParam().id.find('\0'));
  EXPECT_THAT(log_.take(), ElementsAre(invalid(logged, ENOENT)));
}

TEST_P(IdOfNoSpoolFile, IsNotDeleted) {
  const Tree before = tree_of("/var/spool/sms");
  EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById(GetParam().id), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(tree_of("/var/spool/sms"), before);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IdOfNoSpoolFile,
    testing::Values(Elsewhere{"Empty", ""}, Elsewhere{"ThroughTheParent", "../secret"},
                    Elsewhere{"InAFolder", "folder/file"}, Elsewhere{"WithASlash", "/one"},
                    Elsewhere{"ThroughItself", "./one"}, Elsewhere{"Slash", "/"},
                    Elsewhere{"SlashBehind", "one/"}, Elsewhere{"NulBehind", "one\0"s},
                    Elsewhere{"NulWithin", "one\0two"s}, Elsewhere{"Nul", "\0"s}),
    support::CaseName());

// ---- Deleting ----

using DeleteIncomingSms = Spool;

TEST_F(DeleteIncomingSms, RemovesTheFile) {
  put(path_of("one"), "x");
  put(path_of("two"), "x");
  EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById("one"), 0);
  EXPECT_FALSE(exists(path_of("one")));
  EXPECT_TRUE(exists(path_of("two")));
}

TEST_F(DeleteIncomingSms, RemovesALinkAlone) {
  put(at("target"), "x");
  make_link(at("target"), path_of("link"));
  EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById("link"), 0);
  EXPECT_FALSE(exists(path_of("link")));
  EXPECT_TRUE(exists(at("target")));
}

TEST_F(DeleteIncomingSms, OfWhatCannotBeRemovedIsMinus1) {
  EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById("missing"), -1);
  EXPECT_EQ(errno, ENOENT);
  make_folders(path_of("folder"));
  for (const char* id : {"folder", ".", ".."}) {
    EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById(id), -1);
    EXPECT_EQ(errno, EISDIR);
  }
  EXPECT_TRUE(exists(path_of("folder")));
}

// ---- Listing ----

using RetrieveIncomingIds = Spool;

long changed(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return static_cast<long>(status.st_ctime);
}

TEST_F(RetrieveIncomingIds, GivesEachFileWithTheTimeOfItsChange) {
  put(path_of("one"), "x");
  // A time of writing of its own, so that another than that of the change is seen.
  const timespec times[] = {{1000, 0}, {2000, 0}};
  ::utimensat(AT_FDCWD, path_of("one").c_str(), times, 0);
  put(path_of(".hidden"), "");
  put(path_of("%s \n"), "");
  Ids ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_THAT(ids, UnorderedElementsAre(Pair(changed(path_of("one")), "one"),
                                        Pair(changed(path_of(".hidden")), ".hidden"),
                                        Pair(changed(path_of("%s \n")), "%s \n")));
  EXPECT_GT(changed(path_of("one")), 2000);
}

TEST_F(RetrieveIncomingIds, GivesIdsOfMessagesThatCanBeRead) {
  for (int i = 0; i < 300; ++i) put(path_of("sms." + std::to_string(i)), "From: 1\n\nx");
  Ids ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_EQ(ids.size(), 300U);
  for (const auto& id : ids) EXPECT_NE(read(id.second), nullptr) << id.second;
}

TEST_F(RetrieveIncomingIds, AppendsInTheFoldersOrder) {
  for (const char* id : {"c", "a", "b"}) put(path_of(id), "x");
  std::vector<std::string> expected = {"before"};
  for (const auto& entry : std::filesystem::directory_iterator(kSpool)) {
    expected.push_back(entry.path().filename());
  }
  Ids ids = {{7, "before"}};
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_EQ(ids[0].first, 7);
  std::vector<std::string> found;
  for (const auto& id : ids) found.push_back(id.second);
  EXPECT_EQ(found, expected);
}

TEST_F(RetrieveIncomingIds, GivesRegularFilesAlone) {
  put(path_of("one"), "x");
  make_folders(path_of("folder"));
  make_fifo(path_of("fifo"));
  make_link("one", path_of("link"));
  UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {AF_UNIX, "/var/spool/sms/incoming/socket"};
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  Ids ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_THAT(ids, ElementsAre(Pair(testing::_, "one")));
  socket.reset();
}

TEST_F(RetrieveIncomingIds, LeavesOutWhatHasNoType) {
  put(path_of("untyped"), "x");
  put(path_of("typed"), "x");
  Ids ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_THAT(ids, ElementsAre(Pair(testing::_, "typed")));
}

TEST_F(RetrieveIncomingIds, OfNoSpoolGivesNothing) {
  const Ids before = {{7, "before"}};
  Ids ids = before;
  std::filesystem::remove(kSpool);
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_EQ(ids, before);
  put("/var/spool/sms/incoming", "a file");
  CSimpleSMS::RetrieveIncomingIds(ids);
  EXPECT_EQ(ids, before);
}

TEST_F(RetrieveIncomingIds, WithoutADescriptorGivesNothing) {
  put(path_of("one"), "x");
  Ids ids;
  {
    const support::NoMoreDescriptors none;
    CSimpleSMS::RetrieveIncomingIds(ids);
  }
  EXPECT_THAT(ids, IsEmpty());
}

TEST_F(RetrieveIncomingIds, LogsFilesThatCannotBeExamined) {
  put(path_of("one"), "x");
  put(path_of("two"), "x");
  ::chmod(kSpool, 0444);  // to be listed, but not entered
  Ids ids = {{7, "before"}};
  run_without_override([&] { CSimpleSMS::RetrieveIncomingIds(ids); });
  EXPECT_THAT(ids, ElementsAre(Pair(7, "before")));
  EXPECT_THAT(log_.take(),
              UnorderedElementsAre(not_examined("one", EACCES), not_examined("two", EACCES)));
}

TEST_F(RetrieveIncomingIds, LogsASpoolThatCannotBeClosed) {
  put(path_of("one"), "x");
  const std::map<int, std::string> before = support::open_descriptors();
  Ids ids;
  support::run_with_failing_calls({{support::SystemCall::kClose, EIO}},
                                  [&] { CSimpleSMS::RetrieveIncomingIds(ids); });
  EXPECT_THAT(ids, ElementsAre(Pair(testing::_, "one")));
  EXPECT_THAT(log_.take(), ElementsAre(LogLine{
                               LOG_ERR, "Unable to close the directory /var/spool/sms/incoming/"}));
  for (const auto& [descriptor, target] : support::open_descriptors()) {
    if (before.count(descriptor) == 0) ::close(descriptor);  // which was not done
  }
}

TEST_F(RetrieveIncomingIds, WithoutMemoryThrowsOrGivesNothingAndLeavesNothing) {
  // Names too long for the text's own place.
  for (const char c : {'a', 'b', 'c'}) put(path_of(std::string(100, c)), "x");
  for (unsigned long nth = 1;; ++nth) {
    const long before = support::unfreed_count();
    bool happened = false;
    std::size_t count = 0;
    {
      Ids ids;
      const support::FailingAllocation no_memory(nth);
      try {
        CSimpleSMS::RetrieveIncomingIds(ids);
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(no_memory.happened());
      }
      happened = no_memory.happened();
      count = ids.size();
    }
    EXPECT_EQ(support::unfreed_count(), before);
    if (!happened) {
      EXPECT_EQ(count, 3U);
      break;
    }
    EXPECT_LT(count, 3U);
  }
}

// ---- On threads that are cancelled ----

TEST_F(Spool, IsReadThoughCancelled) {
  put(path_of("one"), "From: 1\n\nHello");
  Ids ids;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { CSimpleSMS::RetrieveIncomingIds(ids); }));
  EXPECT_THAT(ids, ElementsAre(Pair(changed(path_of("one")), "one")));
  std::unique_ptr<CSimpleSMS> sms;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { sms = read("one"); }));
  ASSERT_NE(sms, nullptr);
  EXPECT_EQ(sms->text, "Hello");
  EXPECT_TRUE(support::finishes_though_cancelled([&] { sms = read("missing"); }));
  EXPECT_EQ(sms, nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(invalid("missing", ENOENT)));
}

}  // namespace
