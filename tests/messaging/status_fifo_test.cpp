// StatusInterface: its FIFOs, read in libevent's loop.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/status_interface.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/event_compat.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "status_fixture.h"
#include "support/allocation_faults.h"
#include "support/in_child.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using rkutils::internal::UniqueFd;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

// ---- What the observer is ----

using Observer = StatusFifoObserver;
static_assert(support::kIs<&Observer::onStatusFifoRead,
                           void (Observer::*)(bufferevent*, const char*, std::size_t)>);
static_assert(std::is_abstract_v<Observer> && std::has_virtual_destructor_v<Observer>);
static_assert(sizeof(Observer) == sizeof(void*));

TEST(StatusFifoObserver, HasItsCallBehindTheDestructorsTwo) {
  EXPECT_EQ(support::virtual_slot(&Observer::onStatusFifoRead), 2U);
}

// ---- Fixture ----

struct Call {
  unsigned long handle;
  std::string bytes;

  friend bool operator==(const Call& a, const Call& b) {
    return a.handle == b.handle && a.bytes == b.bytes;
  }
};

// Keeps its calls; then does whatever a test wants done in them.
class Recorder : public StatusFifoObserver {
 public:
  void onStatusFifoRead(bufferevent* handle, const char* data, std::size_t count) override {
    EXPECT_EQ(data[count], '\0');
    calls_.push_back({reinterpret_cast<unsigned long>(handle), std::string(data, count)});
    if (action_) action_();
  }

  void then(std::function<void()> action) { action_ = std::move(action); }

  // What came since the last time, on one FIFO or another.
  std::vector<Call> take() { return std::exchange(calls_, {}); }
  std::string take_bytes() {
    std::string bytes;
    for (const Call& call : take()) bytes += call.bytes;
    return bytes;
  }
  // How long the pieces were.
  std::vector<std::size_t> take_lengths() {
    std::vector<std::size_t> lengths;
    for (const Call& call : take()) lengths.push_back(call.bytes.size());
    return lengths;
  }

 private:
  std::vector<Call> calls_;
  std::function<void()> action_;
};

// libevent's default base, and none before it is made.
class EventBase {
 public:
  EventBase() : base_(::event_init()) {}
  ~EventBase() { ::event_base_free(base_); }
  EventBase(const EventBase&) = delete;
  EventBase& operator=(const EventBase&) = delete;

  // Until nothing more is to be done at once.
  void run() {
    for (int round = 0; round < 3; ++round) ::event_base_loop(base_, EVLOOP_NONBLOCK);
  }

 private:
  event_base* const base_;
};

void send(const std::string& path, const std::string& message) {
  const UniqueFd fifo(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (::write(fifo.get(), message.data(), message.size()) != static_cast<ssize_t>(message.size())) {
    throw std::runtime_error("cannot send to " + path);
  }
}

std::string in_app(const std::string& item) { return "/tmp/status/app" + item; }

// An interface on the folder "/tmp/status/app".
std::unique_ptr<StatusInterface> interface_on_app() {
  auto status = std::make_unique<StatusInterface>();
  if (!status->setup(BASEPATH_STATUS, "/app")) throw std::runtime_error("no status folder");
  return status;
}

class StatusFifo : public StatusTest {
 protected:
  void TearDown() override {
    status_.reset();
    base_.reset();
    StatusTest::TearDown();
  }

  std::unique_ptr<EventBase> base_ = std::make_unique<EventBase>();
  std::unique_ptr<StatusInterface> status_ = interface_on_app();
  Recorder observer_;
};

// ---- Messages ----

TEST_F(StatusFifo, DeliversAMessageWithItsHandle) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  ASSERT_NE(handle, 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "fifo 644")));
  base_->run();
  EXPECT_THAT(observer_.take(), IsEmpty());
  send(in_app("/command"), "dial");
  base_->run();
  EXPECT_THAT(observer_.take(), ElementsAre(Call{handle, "dial"}));
}

TEST_F(StatusFifo, DeliversInPiecesOf99) {
  status_->setupIpcRxFifo("/command", &observer_);
  std::string message;
  for (int i = 0; i < 250; ++i) message += static_cast<char>(i);
  send(in_app("/command"), message);
  base_->run();
  const std::vector<Call> calls = observer_.take();
  ASSERT_THAT(calls, SizeIs(3));
  EXPECT_EQ(calls[0].bytes, message.substr(0, 99));
  EXPECT_EQ(calls[1].bytes, message.substr(99, 99));
  EXPECT_EQ(calls[2].bytes, message.substr(198, 52));
}

TEST_F(StatusFifo, DeliversNoEmptyPiece) {
  status_->setupIpcRxFifo("/command", &observer_);
  send(in_app("/command"), std::string(99, 'x'));
  base_->run();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
  send(in_app("/command"), std::string(198, 'x'));
  base_->run();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 99U));
  send(in_app("/command"), std::string(100, 'x'));
  base_->run();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 1U));
}

TEST_F(StatusFifo, DeliversMessagesOfSeveralSendersAsOneStream) {
  status_->setupIpcRxFifo("/command", &observer_);
  send(in_app("/command"), "one\n");
  send(in_app("/command"), std::string("two\0", 4));
  base_->run();
  EXPECT_EQ(observer_.take_bytes(), std::string("one\ntwo\0", 8));
  send(in_app("/command"), "three");  // the FIFO has not ended with its senders
  base_->run();
  EXPECT_EQ(observer_.take_bytes(), "three");
}

TEST_F(StatusFifo, DeliversMoreThanAPipeHolds) {
  status_->setupIpcRxFifo("/command", &observer_);
  std::string sent;
  for (int i = 0; i < 10; ++i) {
    const std::string message(30000, static_cast<char>('a' + i));
    send(in_app("/command"), message);
    sent += message;
    base_->run();
  }
  for (int i = 0; i < 100; ++i) base_->run();
  EXPECT_EQ(observer_.take_bytes(), sent);
}

TEST_F(StatusFifo, IsOneOfSeveral) {
  Recorder other;
  const unsigned long first = status_->setupIpcRxFifo("/first", &observer_);
  const unsigned long second = status_->setupIpcRxFifo("/second", &observer_);
  const unsigned long third = status_->setupIpcRxFifo("/third", &other);
  send(in_app("/second"), "2");
  base_->run();
  send(in_app("/first"), "1");
  base_->run();
  send(in_app("/third"), "3");
  base_->run();
  EXPECT_THAT(observer_.take(), ElementsAre(Call{second, "2"}, Call{first, "1"}));
  EXPECT_THAT(other.take(), ElementsAre(Call{third, "3"}));
}

TEST_F(StatusFifo, WorksOnASmallStack) {
  support::run_on_small_stack([&] {
    status_->setupIpcRxFifo("/command", &observer_);
    send(in_app("/command"), std::string(4096, 'x'));
    base_->run();
    status_->cleanup();
  });
  EXPECT_EQ(observer_.take_bytes(), std::string(4096, 'x'));
}

TEST_F(StatusFifo, IsMadeReadAndDeletedThoughCancelled) {
  unsigned long handle = 0;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { handle = status_->setupIpcRxFifo("/command", &observer_); }));
  ASSERT_NE(handle, 0U);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { status_->deleteIpcRxFifo(handle); }));
  EXPECT_THAT(app_tree(), IsEmpty());
}

// The observer's part is done too.
TEST_F(StatusFifo, CallsItsObserverThoughCancelled) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  auto* const event = reinterpret_cast<bufferevent*>(handle);
  ::bufferevent_setcb(event, nullptr, nullptr, nullptr, nullptr);
  send(in_app("/command"), "dial");
  base_->run();
  observer_.then([] { ::pthread_testcancel(); });
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    StatusInterface::STATUS_FIFO_READ_EVENT(event, static_cast<StatusFifoObserver*>(&observer_));
  }));
  EXPECT_THAT(observer_.take(), ElementsAre(Call{handle, "dial"}));
}

// ---- Setting up ----

using StatusFifoSetup = StatusFifo;

TEST_F(StatusFifoSetup, MakesTheFileWithMode0666LessTheUmask) {
  ::umask(0);
  EXPECT_NE(status_->setupIpcRxFifo("/open", &observer_), 0U);
  ::umask(077);
  EXPECT_NE(status_->setupIpcRxFifo("/closed", &observer_), 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("closed", "fifo 600"), Pair("open", "fifo 666")));
}

TEST_F(StatusFifoSetup, TakesThePlaceOfAFileOrLink) {
  put(in_app("/file"), "old");
  put(in_app("/target"), "stays");
  make_link("target", in_app("/link"));
  EXPECT_NE(status_->setupIpcRxFifo("/file", &observer_), 0U);
  EXPECT_NE(status_->setupIpcRxFifo("/link", &observer_), 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("file", "fifo 644"), Pair("link", "fifo 644"),
                                      Pair("target", "file 644 stays")));
}

TEST_F(StatusFifoSetup, TakesThePlaceOfAFifoThatAnotherProgramLeft) {
  make_fifo(in_app("/command"));
  EXPECT_NE(status_->setupIpcRxFifo("/command", &observer_), 0U);
  send(in_app("/command"), "dial");
  base_->run();
  EXPECT_EQ(observer_.take_bytes(), "dial");
}

TEST_F(StatusFifoSetup, ClosesItsDescriptorOnExec) {
  status_->setupIpcRxFifo("/command", &observer_);
  int found = 0;
  for (const auto& [descriptor, file] : support::open_descriptors()) {
    if (file != in_app("/command")) continue;
    ++found;
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(::fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
  }
  EXPECT_EQ(found, 1);
}

TEST_F(StatusFifoSetup, AsksLibeventForItsMessagesAlone) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  auto* const event = reinterpret_cast<bufferevent*>(handle);
  bufferevent_data_cb written = [](bufferevent*, void*) {};
  bufferevent_event_cb failed = [](bufferevent*, short, void*) {};
  void* argument = nullptr;
  ::bufferevent_getcb(event, nullptr, &written, &failed, &argument);
  EXPECT_EQ(written, nullptr);
  EXPECT_EQ(failed, nullptr);
  EXPECT_EQ(argument, static_cast<StatusFifoObserver*>(&observer_));
  EXPECT_NE(::bufferevent_get_enabled(event) & EV_READ, 0);
}

TEST_F(StatusFifoSetup, FailsForAFolderInItsPlace) {
  make_folders(in_app("/command"));
  EXPECT_EQ(status_->setupIpcRxFifo("/command", &observer_), 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "dir 755")));
}

TEST_F(StatusFifoSetup, FailsWithoutItsFolder) {
  EXPECT_EQ(status_->setupIpcRxFifo("/card/command", &observer_), 0U);
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusFifoSetup, FailsForANameWithANul) {
  put(in_app("/command"), "stays");
  EXPECT_EQ(status_->setupIpcRxFifo(string_of(std::string("/command\0", 9)), &observer_), 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "file 644 stays")));
}

TEST_F(StatusFifoSetup, WithoutAnObserverTouchesNothing) {
  put(in_app("/command"), "stays");
  EXPECT_EQ(status_->setupIpcRxFifo("/command", nullptr), 0U);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "file 644 stays")));
}

TEST_F(StatusFifoSetup, LeavesItsFileWhenThereIsNoDescriptor) {
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(status_->setupIpcRxFifo("/command", &observer_), 0U);
  }
  status_->cleanup();
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "fifo 644")));
}

TEST_F(StatusFifoSetup, WithoutAnEventBaseLeavesItsFileAndNoDescriptor) {
  base_.reset();
  const auto descriptors = support::open_descriptors();
  EXPECT_EQ(status_->setupIpcRxFifo("/command", &observer_), 0U);
  EXPECT_EQ(support::open_descriptors(), descriptors);
  status_->cleanup();
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "fifo 644")));
  base_ = std::make_unique<EventBase>();
  EXPECT_NE(status_->setupIpcRxFifo("/command", &observer_), 0U);
}

// For each allocation but the first, for the path: without that the process ends. What libevent
// keeps for the number of a descriptor stays, so each round has another one.
TEST_F(StatusFifoSetup, WithoutMemoryLeavesItsFileAndNoDescriptor) {
  const String item = "/command";
  constexpr unsigned long kRecord = 2;
  unsigned failures = 0;
  bool happened = true;
  std::vector<UniqueFd> used;
  for (unsigned long nth = kRecord; happened; ++nth) {
    used.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const auto descriptors = support::open_descriptors();
    unsigned long handle = 0;
    {
      const support::FailingAllocation failing(nth);
      handle = status_->setupIpcRxFifo(item, &observer_);
      happened = failing.happened();
    }
    if (handle == 0) {
      ++failures;
      base_->run();
      EXPECT_EQ(support::open_descriptors(), descriptors);
      EXPECT_EQ(app_tree().size(), nth == kRecord ? 0U : 1U);
    } else {
      send(in_app("/command"), "dial");
      base_->run();
      EXPECT_EQ(observer_.take_bytes(), "dial");
    }
    status_->cleanup();
    base_->run();
  }
  EXPECT_GE(failures, 5U);
}

TEST_F(StatusFifoSetup, OfAPathThatIsTooLongFails) {
  const std::string item = "/" + std::string(5000, 'n');
  EXPECT_EQ(status_->setupIpcRxFifo(String(item.c_str()), &observer_), 0U);
}

// ---- Deleting ----

using StatusFifoDelete = StatusFifo;

TEST_F(StatusFifoDelete, ClosesAndRemovesTheFifo) {
  const auto descriptors = support::open_descriptors();
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  send(in_app("/command"), "dial");
  status_->deleteIpcRxFifo(handle);
  EXPECT_EQ(support::open_descriptors(), descriptors);
  EXPECT_THAT(app_tree(), IsEmpty());
  base_->run();
  EXPECT_THAT(observer_.take(), IsEmpty());
}

TEST_F(StatusFifoDelete, ClosesTheFifoBeforeItRemovesIt) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  const UniqueFd watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ::inotify_add_watch(watch.get(), in_app("").c_str(), IN_CLOSE | IN_DELETE);
  status_->deleteIpcRxFifo(handle);
  std::vector<std::uint32_t> steps;
  alignas(inotify_event) std::array<char, 1024> bytes;
  const ssize_t size = ::read(watch.get(), bytes.data(), bytes.size());
  for (ssize_t at = 0; at < size;) {
    inotify_event step;
    std::memcpy(&step, bytes.data() + at, sizeof step);
    steps.push_back(step.mask);
    at += static_cast<ssize_t>(sizeof step + step.len);
  }
  EXPECT_THAT(steps, ElementsAre(IN_CLOSE_WRITE, IN_DELETE));
}

TEST_F(StatusFifoDelete, OfAnUnknownHandleDoesNothing) {
  StatusInterface other;
  ASSERT_TRUE(other.setup(BASEPATH_STATUS, "/app"));
  const unsigned long others = other.setupIpcRxFifo("/other", &observer_);
  status_->deleteIpcRxFifo(0);
  status_->deleteIpcRxFifo(12345);
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  status_->deleteIpcRxFifo(0);
  status_->deleteIpcRxFifo(handle + 1);
  status_->deleteIpcRxFifo(others);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("command", "fifo 644"), Pair("other", "fifo 644")));
  send(in_app("/command"), "dial");
  send(in_app("/other"), "hang up");
  base_->run();
  EXPECT_THAT(observer_.take(), SizeIs(2));
}

TEST_F(StatusFifoDelete, OfOneOfSeveralLeavesTheOthers) {
  const std::vector<std::string> items = {"/a", "/b", "/c"};
  for (const std::string& gone : items) {
    unsigned long handle = 0;
    for (const std::string& item : items) {
      const unsigned long made = status_->setupIpcRxFifo(String(item.c_str()), &observer_);
      if (item == gone) handle = made;
    }
    status_->deleteIpcRxFifo(handle);
    for (const std::string& item : items) {
      EXPECT_EQ(exists(in_app(item)), item != gone);
      if (item != gone) send(in_app(item), item);
    }
    base_->run();
    EXPECT_THAT(observer_.take(), SizeIs(2));
    status_->cleanup();
    EXPECT_THAT(app_tree(), IsEmpty());
  }
}

TEST_F(StatusFifoDelete, LeavesTheNameForANewFifo) {
  for (int round = 0; round < 3; ++round) {
    const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
    send(in_app("/command"), "dial");
    base_->run();
    EXPECT_THAT(observer_.take(), ElementsAre(Call{handle, "dial"}));
    status_->deleteIpcRxFifo(handle);
  }
}

TEST_F(StatusFifoDelete, OfAllIsCleanup) {
  const auto descriptors = support::open_descriptors();
  status_->setupIpcRxFifo("/a", &observer_);
  status_->setupIpcRxFifo("/b", &observer_);
  EXPECT_TRUE(status_->setStatus("/state", "1"));
  status_->cleanup();
  EXPECT_EQ(support::open_descriptors(), descriptors);
  EXPECT_THAT(app_tree(), ElementsAre(Pair("state", "file 644 1")));
  status_->cleanup();
}

TEST_F(StatusFifoDelete, OfAllIsDoneByTheDestructor) {
  struct Derived : StatusInterface {
    std::vector<int> member = {1, 2, 3};  // the leak checker sees it when it stays
  };
  status_ = std::make_unique<Derived>();
  ASSERT_TRUE(status_->setup(BASEPATH_STATUS, "/app"));
  status_->setupIpcRxFifo("/a", &observer_);
  EXPECT_TRUE(status_->setStatus("/state", "1"));
  status_.reset();
  EXPECT_THAT(app_tree(), ElementsAre(Pair("state", "file 644 1")));
}

TEST_F(StatusFifoDelete, SurvivesAnotherSetup) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  EXPECT_TRUE(status_->setup(BASEPATH_STATUS, "/other"));
  send(in_app("/command"), "dial");
  base_->run();
  EXPECT_EQ(observer_.take_bytes(), "dial");
  status_->deleteIpcRxFifo(handle);
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusFifoDelete, LeavesMemoryAloneWhenTheBaseIsGone) {
  // What is lost then is no leak of this process.
  EXPECT_EQ(support::in_child([&] {
              const auto descriptors = support::open_descriptors();
              status_->setupIpcRxFifo("/command", &observer_);
              base_.reset();
              status_.reset();
              if (exists(in_app("/command"))) return std::string("the file is there");
              for (const auto& [descriptor, file] : support::open_descriptors()) {
                if (descriptors.count(descriptor) == 0) return "open: " + file;
              }
              return std::string("done");
            }),
            "done");
}

// ---- What observers do in their calls ----

// A message of three pieces is on its way, and the observer acts on the first.
class StatusFifoObserverCall : public StatusFifo {
 protected:
  StatusFifoObserverCall() { handle_ = status_->setupIpcRxFifo("/command", &observer_); }

  void deliver() {
    send(in_app("/command"), std::string(250, 'x'));
    base_->run();
  }

  unsigned long handle_;
};

TEST_F(StatusFifoObserverCall, MayDeleteItsFifo) {
  observer_.then([&] { status_->deleteIpcRxFifo(handle_); });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusFifoObserverCall, MayDeleteItsFifoInAnyPiece) {
  int calls = 0;
  observer_.then([&] {
    if (++calls == 2) status_->deleteIpcRxFifo(handle_);
  });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 99U));
}

// The new one has the old one's path and descriptor.
TEST_F(StatusFifoObserverCall, MayReplaceItsFifo) {
  Recorder other;
  unsigned long replacement = 0;
  observer_.then([&] {
    status_->deleteIpcRxFifo(handle_);
    replacement = status_->setupIpcRxFifo("/command", &other);
  });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
  EXPECT_THAT(other.take(), IsEmpty());
  ASSERT_NE(replacement, 0U);
  EXPECT_NE(replacement, handle_);
  send(in_app("/command"), "dial");
  base_->run();
  EXPECT_THAT(other.take(), ElementsAre(Call{replacement, "dial"}));
  EXPECT_THAT(observer_.take(), IsEmpty());
}

TEST_F(StatusFifoObserverCall, MayReplaceItsFifoByOneOfItsOwn) {
  observer_.then([&] {
    status_->deleteIpcRxFifo(handle_);
    handle_ = status_->setupIpcRxFifo("/command", &observer_);
  });
  for (int round = 0; round < 3; ++round) {
    const unsigned long handle = handle_;
    send(in_app("/command"), std::string(100, 'x'));
    base_->run();
    EXPECT_THAT(observer_.take(), ElementsAre(Call{handle, std::string(99, 'x')}));
  }
}

TEST_F(StatusFifoObserverCall, MayCleanUp) {
  status_->setupIpcRxFifo("/other", &observer_);
  observer_.then([&] { status_->cleanup(); });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
  EXPECT_THAT(app_tree(), IsEmpty());
}

TEST_F(StatusFifoObserverCall, MayDestroyTheInterface) {
  status_->setupIpcRxFifo("/other", &observer_);
  observer_.then([&] { status_.reset(); });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
  EXPECT_THAT(app_tree(), IsEmpty());
}

class SelfDestroying : public StatusFifoObserver {
 public:
  SelfDestroying(std::unique_ptr<StatusInterface>& status, int& calls)
      : status_(status), calls_(calls) {}
  void onStatusFifoRead(bufferevent* /*handle*/, const char* /*data*/,
                        std::size_t /*count*/) override {
    ++calls_;
    status_.reset();
    delete this;
  }

 private:
  std::unique_ptr<StatusInterface>& status_;
  int& calls_;
};

TEST_F(StatusFifoObserverCall, MayDestroyTheObserver) {
  int calls = 0;
  status_->setupIpcRxFifo("/mortal", new SelfDestroying(status_, calls));
  send(in_app("/mortal"), std::string(250, 'x'));
  base_->run();
  EXPECT_EQ(calls, 1);
}

// Both have a message in the same round of the loop; the one that comes first deletes the other.
TEST_F(StatusFifoObserverCall, MayDeleteAnotherFifoThatHasAMessage) {
  Recorder other;
  const unsigned long others = status_->setupIpcRxFifo("/other", &other);
  observer_.then([&] { status_->deleteIpcRxFifo(others); });
  other.then([&] { status_->deleteIpcRxFifo(handle_); });
  send(in_app("/command"), "1");
  send(in_app("/other"), "2");
  base_->run();
  EXPECT_EQ(observer_.take().size() + other.take().size(), 1U);
  EXPECT_THAT(app_tree(), SizeIs(1));
}

TEST_F(StatusFifoObserverCall, MaySetUpMoreFifos) {
  observer_.then([&] {
    if (!exists(in_app("/more"))) status_->setupIpcRxFifo("/more", &observer_);
  });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 99U, 52U));
  send(in_app("/more"), "more");
  base_->run();
  EXPECT_EQ(observer_.take_bytes(), "more");
}

TEST_F(StatusFifoObserverCall, MayPublish) {
  observer_.then([&] { EXPECT_TRUE(status_->setStatus("/state", "dialling")); });
  deliver();
  EXPECT_EQ(contents_of(in_app("/state")), "dialling");
}

TEST_F(StatusFifoObserverCall, MayThrow) {
  observer_.then([] { throw std::runtime_error("no"); });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 99U, 52U));
}

TEST_F(StatusFifoObserverCall, MayDeleteItsFifoAndThrow) {
  observer_.then([&] {
    status_->deleteIpcRxFifo(handle_);
    throw 1;
  });
  deliver();
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
}

// ---- The callback by itself ----

// On a bufferevent of the test's own, which has another callback.
TEST_F(StatusFifo, HasACallbackForAnyBufferevent) {
  std::array<int, 2> ends = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
  const UniqueFd ours(ends[0]);
  const UniqueFd theirs(ends[1]);
  bufferevent* const event = ::bufferevent_socket_new(nullptr, theirs.get(), 0);
  ::bufferevent_enable(event, EV_READ);
  const std::string message(250, 'x');
  ASSERT_EQ(::write(ours.get(), message.data(), message.size()), 250);
  base_->run();
  StatusInterface::STATUS_FIFO_READ_EVENT(event, static_cast<StatusFifoObserver*>(&observer_));
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U, 99U, 52U));
  StatusInterface::STATUS_FIFO_READ_EVENT(event, static_cast<StatusFifoObserver*>(&observer_));
  EXPECT_THAT(observer_.take(), IsEmpty());
  ::bufferevent_free(event);
}

// The message waits in the bufferevent. When the loop runs and would free that, only the callback
// refers to it.
TEST_F(StatusFifo, HasACallbackThatKeepsItsBufferevent) {
  const unsigned long handle = status_->setupIpcRxFifo("/command", &observer_);
  auto* const event = reinterpret_cast<bufferevent*>(handle);
  auto* const argument = static_cast<StatusFifoObserver*>(&observer_);
  ::bufferevent_setcb(event, nullptr, nullptr, nullptr, nullptr);
  send(in_app("/command"), std::string(250, 'x'));
  base_->run();
  ::bufferevent_setcb(event, StatusInterface::STATUS_FIFO_READ_EVENT, nullptr, nullptr, argument);
  observer_.then([&] {
    status_->deleteIpcRxFifo(handle);
    base_->run();
  });
  StatusInterface::STATUS_FIFO_READ_EVENT(event, argument);
  EXPECT_THAT(observer_.take_lengths(), ElementsAre(99U));
}

}  // namespace
