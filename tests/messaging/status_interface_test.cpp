// StatusInterface: its folder, values and links.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/status_interface.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "status_fixture.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/kernel_folder.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using rkutils::internal::UniqueFd;
using support::kIs;
using support::LogLine;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

// ---- What the class is ----

using Interface = StatusInterface;
static_assert(kIs<&Interface::setup, bool (Interface::*)(BasePath, String const&)>);
static_assert(kIs<&Interface::setStatus, bool (Interface::*)(String const&, String const&)>);
static_assert(kIs<&Interface::getStatus, bool (Interface::*)(String const&, String&) const>);
static_assert(kIs<&Interface::setLink, bool (Interface::*)(String const&, String const&)>);
static_assert(kIs<&Interface::setupIpcRxFifo,
                  unsigned long (Interface::*)(String const&, StatusFifoObserver*)>);
static_assert(kIs<&Interface::deleteIpcRxFifo, void (Interface::*)(unsigned long)>);
static_assert(kIs<&Interface::cleanup, void (Interface::*)()>);
static_assert(kIs<&Interface::STATUS_FIFO_READ_EVENT, void (*)(bufferevent*, void*)>);
static_assert(!std::is_copy_constructible_v<Interface> && !std::is_copy_assignable_v<Interface>);
static_assert(std::has_virtual_destructor_v<Interface>);
static_assert(sizeof(Interface) == 3 * sizeof(void*), "the virtual table, the path, the FIFOs");
static_assert(BASEPATH_STATUS == 0 && BASEPATH_NVSTATUS == 1 && BASEPATH_PROC == 2);

TEST(StatusInterfaceClass, HasNoVirtualMemberButItsDestructor) {
  constexpr std::size_t kFirstSlots = 100;
  EXPECT_GT(support::virtual_slot(&Interface::setup), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::setStatus), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::getStatus), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::setLink), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::setupIpcRxFifo), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::deleteIpcRxFifo), kFirstSlots);
  EXPECT_GT(support::virtual_slot(&Interface::cleanup), kFirstSlots);
}

TEST(StatusInterfaceClass, HasItsPathBeforeItsFifos) {
  const Interface status;
  std::array<std::uintptr_t, 3> words;
  std::memcpy(words.data(), reinterpret_cast<const char*>(&status), sizeof status);
  EXPECT_EQ(words[1], reinterpret_cast<std::uintptr_t>(String::StringBuffer::EMPTY()));
  EXPECT_EQ(words[2], 0U);
}

// ---- setup() ----

class StatusSetup : public StatusTest {
 protected:
  StatusInterface status_;
};

TEST_F(StatusSetup, MakesTheFolderAndThoseAboveIt) {
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/app"));
  EXPECT_THAT(tree_of("/tmp/status"), ElementsAre(Pair("app", "dir 755")));
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/a/b/c"));
  EXPECT_THAT(tree_of("/tmp/status"),
              ElementsAre(Pair("a", "dir 755"), Pair("a/b", "dir 755"), Pair("a/b/c", "dir 755"),
                          Pair("app", "dir 755")));
}

TEST_F(StatusSetup, SucceedsWhereTheFolderIsThere) {
  make_folders("/tmp/status/app");
  put("/tmp/status/app/state", "online");
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/app"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("state", "file 644 online")));
}

TEST_F(StatusSetup, LeavesTheModeToTheUmask) {
  ::umask(0);
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/open"));
  ::umask(077);
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/closed"));
  EXPECT_THAT(tree_of("/tmp/status"),
              ElementsAre(Pair("closed", "dir 700"), Pair("open", "dir 777")));
  EXPECT_EQ(mode_of("/tmp/status"), 0777U);
}

TEST_F(StatusSetup, OfTheLastingStatusIsBelowNvstatus) {
  EXPECT_TRUE(status_.setup(BASEPATH_NVSTATUS, "/app"));
  EXPECT_TRUE(status_.setStatus("/state", "kept"));
  EXPECT_THAT(tree_of("/nvstatus"),
              ElementsAre(Pair("app", "dir 755"), Pair("app/state", "file 644 kept")));
  EXPECT_FALSE(exists("/tmp/status"));
}

TEST_F(StatusSetup, OfTheKernelsStatusIsBelowProc) {
  EXPECT_TRUE(status_.setup(BASEPATH_PROC, "/sys/kernel"));
  String value;
  EXPECT_TRUE(status_.getStatus("/ostype", value));
  EXPECT_EQ(value, "Linux\n");
}

TEST_F(StatusSetup, MakesFoldersBelowProcWhereItTakesThem) {
  const support::KernelFolder proc("/proc");
  EXPECT_TRUE(status_.setup(BASEPATH_PROC, "/driver-of-ours/card"));
  EXPECT_TRUE(status_.setStatus("/state", "on"));
  EXPECT_EQ(contents_of(proc.at("driver-of-ours/card/state")), "on");
}

TEST_F(StatusSetup, FailsBelowTheKernelsProc) {
  EXPECT_FALSE(status_.setup(BASEPATH_PROC, "/ours/deeper"));
  const std::vector<LogLine> lines = log_.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].level, LOG_ERR);
  EXPECT_THAT(lines[0].text, StartsWith("Could not create directory /proc/ours. Errno:"));
  EXPECT_EQ(lines[1], (LogLine{LOG_ERR, "Could not setup status interface for /proc/ours!"}));
}

TEST_F(StatusSetup, WithoutANameIsTheRootItself) {
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, ""));
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  EXPECT_EQ(contents_of("/tmp/status/state"), "1");
}

TEST_F(StatusSetup, PutsTheNameBehindTheRootAsItIs) {
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "-of/app/"));
  EXPECT_TRUE(status_.setStatus("state", "1"));
  EXPECT_EQ(contents_of("/tmp/status-of/app/state"), "1");
  std::filesystem::remove_all("/tmp/status-of");
}

TEST_F(StatusSetup, CountsSlashesInARowAsOne) {
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "//a///b//"));
  EXPECT_THAT(tree_of("/tmp/status"), ElementsAre(Pair("a", "dir 755"), Pair("a/b", "dir 755")));
}

TEST_F(StatusSetup, LogsTheFolderThatCannotBeMade) {
  make_folders("/tmp/status");
  put("/tmp/status/file", "");
  EXPECT_FALSE(status_.setup(BASEPATH_STATUS, "/file//a/b"));
  EXPECT_THAT(
      log_.take(),
      ElementsAre(LogLine{LOG_ERR, "Could not create directory /tmp/status/file/a. Errno:" +
                                       std::to_string(ENOTDIR) + "!"},
                  LogLine{LOG_ERR, "Could not setup status interface for /tmp/status/file/a!"}));
}

TEST_F(StatusSetup, KeepsThePathThatFailed) {
  make_folders("/tmp/status");
  put("/tmp/status/app", "");
  EXPECT_FALSE(status_.setup(BASEPATH_STATUS, "/app/a"));
  log_.take();
  EXPECT_FALSE(status_.setStatus("/state", "1"));
  std::filesystem::remove("/tmp/status/app");
  make_folders("/tmp/status/app/a");
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  EXPECT_EQ(contents_of("/tmp/status/app/a/state"), "1");
}

TEST_F(StatusSetup, TakesAFileForTheLastFolderUntilItIsUsed) {
  make_folders("/tmp/status");
  put("/tmp/status/app", "");
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/app"));
  EXPECT_FALSE(status_.setStatus("/state", "1"));
}

TEST_F(StatusSetup, OfAnotherBaseLeavesTheInterfaceAsItWas) {
  ASSERT_TRUE(status_.setup(BASEPATH_STATUS, "/app"));
  for (const int base : {-1, 3, 1000}) {
    EXPECT_FALSE(status_.setup(static_cast<BasePath>(base), "/other"));
    EXPECT_THAT(log_.take(),
                ElementsAre(LogLine{LOG_ERR, "Could not setup status interface for !"}));
  }
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  EXPECT_THAT(tree_of("/tmp/status"),
              ElementsAre(Pair("app", "dir 755"), Pair("app/state", "file 644 1")));
}

TEST_F(StatusSetup, OfANameWithANulLeavesTheInterfaceAsItWas) {
  ASSERT_TRUE(status_.setup(BASEPATH_STATUS, "/app"));
  EXPECT_FALSE(status_.setup(BASEPATH_STATUS, string_of(std::string("/other\0", 7))));
  EXPECT_THAT(log_.take(), ElementsAre(LogLine{LOG_ERR, "Could not setup status interface for !"}));
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  EXPECT_THAT(tree_of("/tmp/status"),
              ElementsAre(Pair("app", "dir 755"), Pair("app/state", "file 644 1")));
}

TEST_F(StatusSetup, MakesTheDeepestFolderThatTheSystemTakes) {
  constexpr std::size_t kLongest = 4095;  // PATH_MAX less the NUL
  const std::string path = path_of_length("/tmp/status", kLongest);
  const std::string name = path.substr(std::string("/tmp/status").size());
  bool made = false;
  support::run_on_small_stack([&] { made = status_.setup(BASEPATH_STATUS, String(name.c_str())); });
  EXPECT_TRUE(made);
  EXPECT_TRUE(exists(path));
  EXPECT_FALSE(status_.setStatus("/s", "1"));  // one that is too long
}

TEST_F(StatusSetup, FailsAtTheFirstFolderThatIsTooDeep) {
  const std::string path = path_of_length("/tmp/status", 4096);
  const std::string name = path.substr(std::string("/tmp/status").size()) + "/more";
  EXPECT_FALSE(status_.setup(BASEPATH_STATUS, String(name.c_str())));
  EXPECT_THAT(log_.take(),
              ElementsAre(LogLine{LOG_ERR, "Could not create directory " + path +
                                               ". Errno:" + std::to_string(ENAMETOOLONG) + "!"},
                          LogLine{LOG_ERR, "Could not setup status interface for " + path + "!"}));
}

TEST_F(StatusSetup, TakesANameOfAnyLength) {
  const std::string name = "/" + std::string(100000, 'n');
  bool made = true;
  support::run_on_small_stack([&] { made = status_.setup(BASEPATH_STATUS, String(name.c_str())); });
  EXPECT_FALSE(made);
  EXPECT_EQ(log_.take().size(), 2U);
  EXPECT_THAT(tree_of("/tmp/status"), IsEmpty());
}

TEST_F(StatusSetup, OfOneInterfaceDoesNotConcernAnother) {
  StatusInterface other;
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, ""));
  EXPECT_TRUE(other.setup(BASEPATH_STATUS, ""));
  EXPECT_TRUE(status_.setup(BASEPATH_STATUS, "/one"));
  EXPECT_TRUE(other.setStatus("/state", "1"));
  EXPECT_THAT(tree_of("/tmp/status"),
              ElementsAre(Pair("one", "dir 755"), Pair("state", "file 644 1")));
}

// Plain counts of a text that all interfaces share would be lost, and the text freed.
TEST_F(StatusSetup, WorksOnSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 1000; ++round) {
        StatusInterface status;
        if (!status.setup(BASEPATH_STATUS, "")) ADD_FAILURE();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(StatusSetup, IsWhatItemsNeed) {
  const String item = String(folder_.c_str()) + "/state";
  EXPECT_TRUE(status_.setStatus(item, "1"));  // a path of the whole file system
  EXPECT_THAT(tree(), ElementsAre(Pair("state", "file 644 1")));
}

// ---- setStatus() ----

class StatusSet : public StatusAppTest {};

TEST_F(StatusSet, MakesTheValueTheWholeContent) {
  EXPECT_TRUE(status_.setStatus("/state", "connecting"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("state", "file 644 connecting")));
  EXPECT_TRUE(status_.setStatus("/state", "up"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("state", "file 644 up")));
}

TEST_F(StatusSet, OfAnEmptyValueLeavesAnEmptyFile) {
  EXPECT_TRUE(status_.setStatus("/state", "up"));
  EXPECT_TRUE(status_.setStatus("/state", ""));
  EXPECT_TRUE(status_.setStatus("/new", String()));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("new", "file 644 "), Pair("state", "file 644 ")));
}

TEST_F(StatusSet, WritesAllBytesOfAValue) {
  std::string value;
  for (int byte = 0; byte < 256; ++byte) value += static_cast<char>(byte);
  EXPECT_TRUE(status_.setStatus("/state", string_of(value)));
  EXPECT_EQ(contents_of("/tmp/status/app/state"), value);
}

TEST_F(StatusSet, MakesFilesWithMode0644LessTheUmask) {
  ::umask(0);
  EXPECT_TRUE(status_.setStatus("/open", "1"));
  ::umask(077);
  EXPECT_TRUE(status_.setStatus("/closed", "1"));
  EXPECT_EQ(mode_of("/tmp/status/app/open"), 0644U);
  EXPECT_EQ(mode_of("/tmp/status/app/closed"), 0600U);
}

TEST_F(StatusSet, FailsWithoutItsFolder) {
  EXPECT_FALSE(status_.setStatus("/card/state", "1"));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusSet, FailsForAFolderInItsPlace) {
  make_folders("/tmp/status/app/state");
  EXPECT_FALSE(status_.setStatus("/state", "1"));
  EXPECT_FALSE(status_.setStatus("", "1"));
}

TEST_F(StatusSet, FailsForANameWithANul) {
  EXPECT_FALSE(status_.setStatus(string_of(std::string("/state\0x", 8)), "1"));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusSet, WritesThroughALink) {
  put("/tmp/status/elsewhere", "before");
  make_link("../elsewhere", "/tmp/status/app/state");
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  EXPECT_EQ(contents_of("/tmp/status/elsewhere"), "1");
}

TEST_F(StatusSet, FailsOnAFullDisk) {
  const TinyDisk disk("/tmp/status/app");
  const std::string value(TinyDisk::kSize + 1, 'v');
  EXPECT_FALSE(status_.setStatus("/large", string_of(value)));
  EXPECT_EQ(contents_of("/tmp/status/app/large"), value.substr(0, TinyDisk::kSize));
  EXPECT_FALSE(status_.setStatus("/small", "1"));
  EXPECT_TRUE(status_.setStatus("/empty", ""));
}

TEST_F(StatusSet, FailsOnAReadOnlyDisk) {
  TinyDisk disk("/tmp/status/app");
  EXPECT_TRUE(status_.setStatus("/state", "1"));
  disk.make_read_only();
  EXPECT_FALSE(status_.setStatus("/state", "2"));
  EXPECT_EQ(contents_of("/tmp/status/app/state"), "1");
}

TEST_F(StatusSet, FailsWithoutADescriptor) {
  const support::NoMoreDescriptors none;
  EXPECT_FALSE(status_.setStatus("/state", "1"));
}

// The pipe is full, so that setStatus() is in its write when the signal comes.
TEST_F(StatusSet, WritesOnceThoughASignalInterruptsIt) {
  const char* const path = "/tmp/status/app/pipe";
  make_fifo(path);
  const int pipe = ::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const std::string page(4096, 'x');
  std::size_t filled = 0;
  while (::write(pipe, page.data(), page.size()) > 0) filled += page.size();

  const Interruption interruption;
  bool set = false;
  std::thread setter([&] { set = status_.setStatus("/pipe", "message"); });
  Interruption::send(setter);
  std::string received(filled, '\0');
  for (std::size_t got = 0; got < filled;) {
    got += static_cast<std::size_t>(::read(pipe, received.data() + got, filled - got));
  }
  setter.join();
  EXPECT_TRUE(set);
  received.resize(100);
  const ssize_t count = ::read(pipe, received.data(), received.size());
  EXPECT_EQ(received.substr(0, static_cast<std::size_t>(count)), "message");
  ::close(pipe);
}

TEST_F(StatusSet, WrittenInPartIsNotContinued) {
  // Continuing beyond the limit would raise SIGXFSZ.
  EXPECT_EQ(support::in_child([&]() -> std::string {
              const rlimit limit = {100, 100};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              return status_.setStatus("/state", string_of(std::string(150, 'v'))) ? "set" : "not";
            }),
            "not");
  EXPECT_EQ(contents_of("/tmp/status/app/state"), std::string(100, 'v'));
}

volatile std::sig_atomic_t pipe_signals = 0;

TEST_F(StatusSet, RaisesSigpipeWhenItsReaderGoes) {
  const char* const path = "/tmp/status/app/pipe";
  make_fifo(path);
  UniqueFd reader(::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  const std::string page(4096, 'x');
  while (::write(reader.get(), page.data(), page.size()) > 0) {
  }
  const auto previous = std::signal(SIGPIPE, [](int) { pipe_signals = pipe_signals + 1; });
  const auto before = support::open_descriptors();
  bool set = true;
  std::thread setter([&] { set = status_.setStatus("/pipe", "message"); });
  while (support::open_descriptors() == before) {  // until it has the pipe open too
  }
  reader.reset();
  setter.join();
  std::signal(SIGPIPE, previous);
  EXPECT_FALSE(set);
  EXPECT_EQ(pipe_signals, 1);
}

// ---- getStatus() ----

class StatusGet : public StatusAppTest {
 protected:
  // What is read of a file with this content.
  std::string read_of(const std::string& content) {
    put("/tmp/status/app/item", content);
    String value = "before";
    EXPECT_TRUE(status_.getStatus("/item", value));
    return bytes_of(value);
  }
};

TEST_F(StatusGet, ReadsTheWholeContent) {
  EXPECT_EQ(read_of("online"), "online");
  EXPECT_EQ(read_of(" two\nlines\n"), " two\nlines\n");
  EXPECT_EQ(read_of(""), "");
}

TEST_F(StatusGet, ReadsContentsOfAnyLength) {
  for (const std::size_t length : {98U, 99U, 100U, 198U, 250U, 100000U}) {
    std::string content;
    for (std::size_t i = 0; i < length; ++i) content += static_cast<char>('a' + i % 26);
    EXPECT_EQ(read_of(content), content) << length;
  }
}

TEST_F(StatusGet, LeavesOutWhatFollowsANulInItsPieceOf99) {
  std::string content(250, 'a');
  content.replace(99, 99, std::string(99, 'b'));
  content.replace(198, 52, std::string(52, 'c'));
  content[10] = '\0';
  content[120] = '\0';
  EXPECT_EQ(read_of(content), std::string(10, 'a') + std::string(21, 'b') + std::string(52, 'c'));
  EXPECT_EQ(read_of(std::string("\0x", 2)), "");
}

TEST_F(StatusGet, ReadsWhatWasSet) {
  EXPECT_TRUE(status_.setStatus("/state", "a value"));
  const StatusInterface& status = status_;
  String value;
  EXPECT_TRUE(status.getStatus("/state", value));
  EXPECT_EQ(value, "a value");
}

TEST_F(StatusGet, OfAMissingItemFailsWithAnEmptyValue) {
  String value = "before";
  EXPECT_FALSE(status_.getStatus("/item", value));
  EXPECT_EQ(value, "");
}

TEST_F(StatusGet, OfANameWithANulFailsWithAnEmptyValue) {
  put("/tmp/status/app/item", "1");
  String value = "before";
  EXPECT_FALSE(status_.getStatus(string_of(std::string("/item\0", 6)), value));
  EXPECT_EQ(value, "");
}

TEST_F(StatusGet, WithoutADescriptorFailsWithAnEmptyValue) {
  put("/tmp/status/app/item", "1");
  String value = "before";
  const support::NoMoreDescriptors none;
  EXPECT_FALSE(status_.getStatus("/item", value));
  EXPECT_EQ(value, "");
}

TEST_F(StatusGet, OfAFolderFailsWithAnEmptyValue) {
  make_folders("/tmp/status/app/item");
  String value = "before";
  EXPECT_FALSE(status_.getStatus("/item", value));
  EXPECT_EQ(value, "");
}

TEST_F(StatusGet, ThatCannotReadOnFailsWithAnEmptyValue) {
  put("/tmp/status/app/item", std::string(250, 'x'));
  String value = "before";
  bool read = true;
  support::run_with_failing_calls({{SystemCall::kRead, EIO, 2}},
                                  [&] { read = status_.getStatus("/item", value); });
  EXPECT_FALSE(read);
  EXPECT_EQ(value, "");
}

TEST_F(StatusGet, GoesOnAfterASignal) {
  put("/tmp/status/app/item", std::string(250, 'x'));
  String value;
  bool read = false;
  support::run_with_failing_calls({{SystemCall::kRead, EINTR, 1, 2}},
                                  [&] { read = status_.getStatus("/item", value); });
  EXPECT_TRUE(read);
  EXPECT_EQ(value.length(), 250);
}

TEST_F(StatusGet, TakesTheValueForTheItemToo) {
  put("/tmp/status/app/item", "1");
  String text = "/item";
  EXPECT_TRUE(status_.getStatus(text, text));
  EXPECT_EQ(text, "1");
}

TEST_F(StatusGet, FollowsALink) {
  put("/tmp/status/elsewhere", "1");
  EXPECT_TRUE(status_.setLink("/item", "../elsewhere"));
  String value;
  EXPECT_TRUE(status_.getStatus("/item", value));
  EXPECT_EQ(value, "1");
}

TEST_F(StatusGet, WorksOnASmallStack) {
  String value;
  bool done = false;
  support::run_on_small_stack([&] {
    done = status_.setStatus("/item", string_of(std::string(300000, 'x'))) &&
           status_.getStatus("/item", value);
  });
  EXPECT_TRUE(done);
  EXPECT_EQ(value.length(), 300000);
}

// ---- setLink() ----

class StatusLink : public StatusAppTest {};

TEST_F(StatusLink, IsMadeAndReplaced) {
  EXPECT_TRUE(status_.setLink("/uplink", "/tmp/status/wwanmd/card1"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("uplink", "link /tmp/status/wwanmd/card1")));
  EXPECT_TRUE(status_.setLink("/uplink", "../lan"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("uplink", "link ../lan")));
}

TEST_F(StatusLink, TakesThePlaceOfAFile) {
  EXPECT_TRUE(status_.setStatus("/uplink", "1"));
  EXPECT_TRUE(status_.setLink("/uplink", "there"));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("uplink", "link there")));
}

TEST_F(StatusLink, IsRemovedByAnEmptyTarget) {
  EXPECT_TRUE(status_.setLink("/uplink", "there"));
  EXPECT_TRUE(status_.setLink("/uplink", ""));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusLink, NeedNotBeThereToBeRemoved) {
  EXPECT_TRUE(status_.setLink("/uplink", ""));
  EXPECT_TRUE(status_.setLink("/folder/uplink", String()));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusLink, RemovesNotWhereItLeads) {
  put("/tmp/status/app/target", "1");
  EXPECT_TRUE(status_.setLink("/uplink", "target"));
  EXPECT_TRUE(status_.setLink("/uplink", ""));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("target", "file 644 1")));
}

TEST_F(StatusLink, FailsForAFolderInItsPlace) {
  make_folders("/tmp/status/app/uplink");
  EXPECT_FALSE(status_.setLink("/uplink", "there"));
  EXPECT_TRUE(status_.setLink("/uplink", ""));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("uplink", "dir 755")));
}

TEST_F(StatusLink, FailsWithoutItsFolder) {
  EXPECT_FALSE(status_.setLink("/card/uplink", "there"));
}

TEST_F(StatusLink, FailsForANameOrTargetWithANul) {
  EXPECT_TRUE(status_.setLink("/uplink", "there"));
  EXPECT_FALSE(status_.setLink(string_of(std::string("/uplink\0", 8)), "other"));
  EXPECT_FALSE(status_.setLink("/uplink", string_of(std::string("other\0", 6))));
  EXPECT_TRUE(status_.setLink(string_of(std::string("/uplink\0", 8)), ""));
  EXPECT_THAT(app_tree(), ElementsAre(Pair("uplink", "link there")));
}

// ---- On threads that are cancelled ----

TEST_F(StatusTest, IsReadAndWrittenThoughCancelled) {
  StatusInterface status;
  String value;
  bool done = false;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    done = status.setup(BASEPATH_STATUS, "/app") && status.setStatus("/state", "online") &&
           status.getStatus("/state", value) && status.setLink("/link", "state");
  }));
  EXPECT_TRUE(done);
  EXPECT_STREQ(value.c_str(), "online");
  put("/tmp/status/file", "");
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { done = status.setup(BASEPATH_STATUS, "/file/app"); }));
  EXPECT_FALSE(done);
  EXPECT_THAT(log_.take(), testing::SizeIs(2));
}

// ---- The end ----

TEST_F(StatusTest, StaysWhenTheInterfaceIsGone) {
  {
    StatusInterface status;
    ASSERT_TRUE(status.setup(BASEPATH_STATUS, "/app"));
    EXPECT_TRUE(status.setStatus("/state", "1"));
    EXPECT_TRUE(status.setLink("/link", "state"));
    status.cleanup();
  }
  EXPECT_THAT(app_tree(), ElementsAre(Pair("link", "link state"), Pair("state", "file 644 1")));
}

}  // namespace
