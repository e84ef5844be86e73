// Events into the event manager's pipe.

#include <rkutils/event.h>
#include <rkutils/export.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "../foundations/file_fixture.h"
#include "support/case_name.h"
#include "support/in_child.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

// How many bytes each write of this thread was to write.
thread_local std::vector<std::size_t> writes;

}  // namespace

// Stands before the C library's and makes the system call itself.
// NOLINTBEGIN(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)
extern "C" RK_API ssize_t write(int descriptor, const void* bytes, std::size_t size);
ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  writes.push_back(size);
  return ::syscall(SYS_write, descriptor, bytes, size);
}
// NOLINTEND(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)

namespace {

using namespace std::chrono_literals;
using rkutils::internal::UniqueFd;
using support::open_descriptors;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_same_v<decltype(&rkevent), int (*)(unsigned, unsigned, const char*)>);

constexpr std::size_t kRecordSize = 136;
constexpr char kFolder[] = "/tmp/status/event-manager";
constexpr char kInput[] = "/tmp/status/event-manager/throw";

std::string number(std::uint32_t value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// The bytes that a record is to have.
std::string record(std::uint32_t event, std::uint32_t parameter, const std::string& text) {
  std::string bytes = number(event) + number(parameter) + text;
  bytes.resize(kRecordSize);
  return bytes;
}

class Rkevent : public FileTest {
 protected:
  Rkevent() { make_folders(kFolder); }
  ~Rkevent() override { std::filesystem::remove_all("/tmp/status"); }
};

// With an event manager that has its pipe open.
class RkeventPipe : public Rkevent {
 protected:
  RkeventPipe() {
    make_fifo(kInput);
    manager_ = UniqueFd(::open(kInput, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

  void TearDown() override {
    manager_.reset();
    Rkevent::TearDown();
  }

  // What is in the pipe.
  std::string take() {
    std::string bytes(std::size_t{256} * 1024, '\0');
    const ssize_t count = ::read(manager_.get(), bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }

  // Fills the pipe but for `room` bytes, and returns how much there is in it.
  static std::size_t fill(std::size_t room) {
    const UniqueFd other(::open(kInput, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    const int size = ::fcntl(other.get(), F_SETPIPE_SZ, 4096);
    const std::string filling(static_cast<std::size_t>(size) - room, '.');
    EXPECT_EQ(::write(other.get(), filling.data(), filling.size()),
              static_cast<ssize_t>(filling.size()));
    return filling.size();
  }

  UniqueFd manager_;
};

TEST_F(RkeventPipe, TakesARecordOfTwoNumbersAndAText) {
  EXPECT_EQ(rkevent(0x01020304, 0xfffffffe, "wwan0 is up"), 0);
  EXPECT_EQ(take(), record(0x01020304, 0xfffffffe, "wwan0 is up"));
}

TEST_F(RkeventPipe, TakesRecordsOneAfterTheOther) {
  EXPECT_EQ(rkevent(1, 2, "one"), 0);
  EXPECT_EQ(rkevent(0, 0, "two"), 0);
  EXPECT_EQ(rkevent(5, 6, nullptr), 0);
  EXPECT_EQ(take(), record(1, 2, "one") + record(0, 0, "two") + record(5, 6, ""));
}

struct Text {
  const char* name;
  std::string given;
  std::string expected;
};

class RkeventText : public RkeventPipe, public testing::WithParamInterface<Text> {};

TEST_P(RkeventText, IsCutTo127CharactersAndFilledWithZeros) {
  rkevent(1, 1, std::string(200, '#').c_str());  // what the stack may still hold afterwards
  take();
  EXPECT_EQ(rkevent(1, 2, GetParam().given.c_str()), 0);
  EXPECT_EQ(take(), record(1, 2, GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RkeventText,
    testing::Values(Text{"Empty", "", ""}, Text{"OneCharacter", "a", "a"},
                    Text{"HighBytesAndControls", "\xff\x80\n\t\x01", "\xff\x80\n\t\x01"},
                    Text{"PercentSigns", "%s%n", "%s%n"},
                    Text{"JustFits", std::string(127, 'x'), std::string(127, 'x')},
                    Text{"OneTooLong", std::string(127, 'x') + "y", std::string(127, 'x')},
                    Text{"MuchTooLong", std::string(200, 'x'), std::string(127, 'x')},
                    Text{"Huge", std::string(1000000, 'x'), std::string(127, 'x')}),
    support::CaseName());

TEST_F(RkeventPipe, TakesARecordThatNobodyReads) {
  manager_.reset();
  EXPECT_EQ(rkevent(1, 2, "lost"), 0);
  manager_ = UniqueFd(::open(kInput, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_EQ(take(), "");
}

TEST_F(RkeventPipe, GetsTheRecordWithOneWrite) {
  writes.clear();
  EXPECT_EQ(rkevent(1, 2, "once"), 0);
  EXPECT_THAT(writes, ElementsAre(kRecordSize));
  EXPECT_EQ(take(), record(1, 2, "once"));
}

TEST_F(RkeventPipe, IsOpenForReadingAndWritingAndNotForChildren) {
  fill(0);
  const std::map<int, std::string> before = open_descriptors();
  std::thread caller([] { rkevent(1, 2, "waits"); });
  std::string line;
  while (line.empty()) {
    for (const auto& [descriptor, path] : open_descriptors()) {
      if (path != kInput || before.count(descriptor) != 0) continue;
      std::ifstream details("/proc/self/fdinfo/" + std::to_string(descriptor));
      while (std::getline(details, line) && line.compare(0, 6, "flags:") != 0) {
      }
    }
  }
  const unsigned long flags = std::stoul(line.substr(6), nullptr, 8);
  const auto expected = static_cast<unsigned long>(O_RDWR | O_CLOEXEC);
  const auto asked = static_cast<unsigned long>(O_ACCMODE | O_CLOEXEC | O_APPEND | O_NONBLOCK);
  EXPECT_EQ(flags & asked, expected);
  take();
  caller.join();
}

TEST_F(RkeventPipe, MakesTheCallerWaitWhileItIsFull) {
  // Room for a part of the record is no room.
  for (const std::size_t room : {std::size_t{0}, kRecordSize - 1}) {
    manager_ = UniqueFd(::open(kInput, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const std::size_t filled = fill(room);
    std::future<int> result = std::async(std::launch::async, [] { return rkevent(1, 2, "late"); });
    EXPECT_EQ(result.wait_for(50ms), std::future_status::timeout);
    EXPECT_EQ(take(), std::string(filled, '.'));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(take(), record(1, 2, "late"));
  }
}

TEST_F(RkeventPipe, MakesTheCallerWaitOnWhenASignalInterrupts) {
  const std::size_t filled = fill(0);
  const Interruption interruption;
  int result = -2;
  std::thread caller([&] { result = rkevent(1, 2, "late"); });
  Interruption::send(caller);
  Interruption::send(caller);
  EXPECT_EQ(take(), std::string(filled, '.'));
  caller.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(take(), record(1, 2, "late"));
}

TEST_F(RkeventPipe, KeepsTheRecordsOfSeveralCallersApart) {
  constexpr std::size_t kCallers = 4;
  constexpr std::size_t kRecords = 500;
  fill(0);
  take();  // a small pipe from now on, so that the callers wait for each other
  std::vector<std::thread> callers;
  for (unsigned caller = 0; caller < kCallers; ++caller) {
    callers.emplace_back([caller] {
      const std::string text(120, static_cast<char>('a' + caller));
      for (unsigned i = 0; i < kRecords; ++i) {
        EXPECT_EQ(rkevent(caller, i, text.c_str()), 0);
      }
    });
  }
  std::string received;
  while (received.size() < kCallers * kRecords * kRecordSize) received += take();
  for (std::thread& caller : callers) caller.join();

  std::vector<std::uint32_t> next(kCallers, 0);
  for (std::size_t at = 0; at < received.size(); at += kRecordSize) {
    const std::string one = received.substr(at, kRecordSize);
    std::uint32_t caller = 0;
    std::memcpy(&caller, one.data(), sizeof caller);
    ASSERT_LT(caller, kCallers);
    ASSERT_EQ(one,
              record(caller, next[caller]++, std::string(120, static_cast<char>('a' + caller))));
  }
  EXPECT_EQ(take(), "");
}

TEST_F(RkeventPipe, NeedsLittleStack) {
  int result = -2;
  support::run_on_small_stack([&] { result = rkevent(1, 2, "small"); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(take(), record(1, 2, "small"));
}

TEST_F(RkeventPipe, WithoutADescriptorGetsNothing) {
  int result = -2;
  {
    const support::NoMoreDescriptors none;
    result = rkevent(1, 2, "none");
    EXPECT_EQ(errno, EMFILE);
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(take(), "");
}

TEST_F(RkeventPipe, MustBeReadableAndWritable) {
  for (const mode_t mode : {0200U, 0400U}) {
    ::chmod(kInput, mode);
    int result = -2;
    run_without_override([&] { result = rkevent(1, 2, "denied"); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(take(), "");
  }
}

TEST_F(Rkevent, WithoutThePipeIsMinus1AndCreatesNothing) {
  EXPECT_EQ(rkevent(1, 2, "nobody"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(tree_of(kFolder), IsEmpty());

  std::filesystem::remove(kFolder);
  EXPECT_EQ(rkevent(1, 2, nullptr), -1);
  EXPECT_THAT(tree_of("/tmp/status"), IsEmpty());
}

TEST_F(Rkevent, WithALinkToNothingCreatesNothing) {
  make_link("elsewhere", kInput);
  EXPECT_EQ(rkevent(1, 2, "nobody"), -1);
  EXPECT_EQ(tree_of(kFolder), (Tree{{"throw", "link elsewhere"}}));
}

TEST_F(Rkevent, WithAFolderInThePipesPlaceIsMinus1) {
  make_folders(kInput);
  EXPECT_EQ(rkevent(1, 2, "folder"), -1);
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(Rkevent, OverwritesTheFirstBytesOfAFile) {
  put(kInput, std::string(200, '.'));
  EXPECT_EQ(rkevent(1, 2, "one"), 0);
  EXPECT_EQ(contents_of(kInput), record(1, 2, "one") + std::string(200 - kRecordSize, '.'));
  EXPECT_EQ(rkevent(3, 4, "two"), 0);
  EXPECT_EQ(contents_of(kInput), record(3, 4, "two") + std::string(200 - kRecordSize, '.'));
}

TEST_F(Rkevent, OntoAFullDiskIsMinus1) {
  make_link("/dev/full", kInput);
  EXPECT_EQ(rkevent(1, 2, "full"), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Rkevent, WrittenInPartIsMinus1AndNotContinued) {
  put(kInput, "");
  // Continuing beyond the limit would raise SIGXFSZ.
  EXPECT_EQ(support::in_child([] {
              const rlimit limit = {100, 100};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              return std::to_string(rkevent(1, 2, "part"));
            }),
            "-1");
  EXPECT_EQ(contents_of(kInput), record(1, 2, "part").substr(0, 100));
}

TEST_F(RkeventPipe, TakesARecordThoughCancelled) {
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = rkevent(1, 2, "text"); }));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(take(), record(1, 2, "text"));
}

}  // namespace
