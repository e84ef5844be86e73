// The list of processes: of ones that there are, and of invented ones.

#include <rkutils/process_control.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

#include "process_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/language_allocation.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using language_allocation::Watch;
using support::FailingCall;
using support::kIs;
using support::run_with_failing_calls;
using support::SystemCall;
using support::virtual_slot;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using namespace std::string_literals;

constexpr int kInvented = InventedProcesses::kFirst;

// ---- The classes as programs know them ----

using Entry = ProcessEntry;
using Control = ProcessControl;

static_assert(std::is_constructible_v<Entry, int, const char*>);
static_assert(kIs<&Entry::getPid, int (Entry::*)() const>);
static_assert(kIs<&Entry::getName, const char* (Entry::*)() const>);
static_assert(kIs<&Entry::getNext, Entry* (Entry::*)() const>);
static_assert(kIs<&Entry::setNext, void (Entry::*)(Entry*)>);
static_assert(kIs<&Entry::setValid, void (Entry::*)(bool)>);
static_assert(kIs<&Entry::isValid, bool (Entry::*)()>);
static_assert(!std::is_copy_constructible_v<Entry> && !std::is_copy_assignable_v<Entry>);
static_assert(sizeof(Entry) == 5 * sizeof(void*));

static_assert(kIs<&Control::refresh, void (Control::*)(bool)>);
static_assert(
    kIs<&Control::getNextProcessEntryByName, Entry* (Control::*)(const char*, const Entry*) const>);
static_assert(kIs<&Control::getNumberOfProcessesByName, int (Control::*)(const char*) const>);
static_assert(kIs<&Control::getProcessEntryByPid, Entry* (Control::*)(int)>);
static_assert(kIs<&Control::getNumberOfProcesses, int (Control::*)() const>);
static_assert(kIs<&Control::cleanup, void (Control::*)()>);
static_assert(kIs<&Control::isNumeric, bool (Control::*)(const char*) const>);
static_assert(!std::is_copy_constructible_v<Control> && !std::is_copy_assignable_v<Control>);
static_assert(sizeof(Control) == 3 * sizeof(void*));

// What an object has behind so many words, the first of which is for its virtual members.
template <typename Type>
Type member_behind(std::size_t words, const void* object) {
  Type member;
  std::memcpy(&member, static_cast<const char*>(object) + words * sizeof(void*), sizeof member);
  return member;
}

TEST(ProcessEntryClass, KeepsItsMembersInOrder) {
  Entry next(2, "b");
  Entry entry(INT_MIN, "a");
  entry.setNext(&next);
  EXPECT_EQ(member_behind<int>(1, &entry), INT_MIN);
  EXPECT_EQ(member_behind<const void*>(2, &entry), entry.getName());
  EXPECT_EQ(member_behind<const void*>(3, &entry), &next);
  EXPECT_TRUE(member_behind<bool>(4, &entry));
  entry.setValid(false);
  EXPECT_FALSE(member_behind<bool>(4, &entry));
}

TEST(ProcessEntryClass, HasItsVirtualMembersInOrder) {
  EXPECT_EQ(virtual_slot(&Entry::getPid), 2U);
  EXPECT_EQ(virtual_slot(&Entry::getName), 3U);
  EXPECT_EQ(virtual_slot(&Entry::getNext), 4U);
  EXPECT_EQ(virtual_slot(&Entry::setNext), 5U);
  EXPECT_EQ(virtual_slot(&Entry::setValid), 6U);
  EXPECT_EQ(virtual_slot(&Entry::isValid), 7U);
}

TEST(ProcessControlClass, HasItsVirtualMembersInOrder) {
  EXPECT_EQ(virtual_slot(&Control::refresh), 2U);
  EXPECT_EQ(virtual_slot(&Control::getNextProcessEntryByName), 3U);
  EXPECT_EQ(virtual_slot(&Control::getNumberOfProcessesByName), 4U);
  EXPECT_EQ(virtual_slot(&Control::getProcessEntryByPid), 5U);
  EXPECT_EQ(virtual_slot(&Control::getNumberOfProcesses), 6U);
  EXPECT_EQ(virtual_slot(&Control::cleanup), 7U);
  EXPECT_GT(virtual_slot(&Control::isNumeric), 100U) << "it is not virtual";
}

// ---- Entries ----

TEST(ProcessEntry, HasACopyOfItsName) {
  const Watch watch;
  {
    std::string name = "sleep 10";
    const Entry entry(12, name.c_str());
    name[0] = 'S';
    EXPECT_EQ(entry.getPid(), 12);
    EXPECT_STREQ(entry.getName(), "sleep 10");
  }
  EXPECT_EQ(watch.unfreed(), 0);
  EXPECT_THAT(watch.requests(), Contains(language_allocation::Request{true, sizeof "sleep 10"}));
}

TEST(ProcessEntry, TakesNullAsAnEmptyName) {
  const Entry entry(-1, nullptr);
  EXPECT_STREQ(entry.getName(), "");
  EXPECT_EQ(entry.getPid(), -1);
}

TEST(ProcessEntry, IsValidAndAloneAtFirst) {
  Entry entry(1, "");
  EXPECT_TRUE(entry.isValid());
  EXPECT_EQ(entry.getNext(), nullptr);
}

TEST(ProcessEntry, TakesItsLinkAndItsMark) {
  Entry entry(1, "a");
  Entry next(2, "b");
  entry.setNext(&next);
  EXPECT_EQ(entry.getNext(), &next);
  entry.setNext(nullptr);
  EXPECT_EQ(entry.getNext(), nullptr);
  entry.setValid(false);
  EXPECT_FALSE(entry.isValid());
  entry.setValid(true);
  EXPECT_TRUE(entry.isValid());
}

TEST(ProcessEntry, DoesNotOwnTheNext) {
  Entry next(2, "b");
  { Entry(1, "a").setNext(&next); }
  EXPECT_STREQ(next.getName(), "b");
}

TEST(ProcessEntry, ThrowsWithoutMemory) {
  const support::FailingAllocation failing(1);
  EXPECT_THROW(Entry(1, "name"), std::bad_alloc);
}

// ---- Lists ----

// What a caller sees of an entry.
struct Seen {
  int pid;
  std::string name;

  friend bool operator==(const Seen& a, const Seen& b) {
    return a.pid == b.pid && a.name == b.name;
  }
  friend std::ostream& operator<<(std::ostream& out, const Seen& entry) {
    return out << entry.pid << " " << entry.name;
  }
};

std::vector<Entry*> entries_of(const Control& processes) {
  std::vector<Entry*> entries;
  Entry* entry = processes.getNextProcessEntryByName(nullptr, nullptr);
  for (; entry != nullptr; entry = entry->getNext()) entries.push_back(entry);
  return entries;
}

std::vector<Seen> seen(const Control& processes) {
  std::vector<Seen> list;
  for (const Entry* const entry : entries_of(processes)) {
    list.push_back({entry->getPid(), entry->getName()});
  }
  return list;
}

std::vector<int> ids_of(const Control& processes) {
  std::vector<int> ids;
  for (const Entry* const entry : entries_of(processes)) ids.push_back(entry->getPid());
  return ids;
}

bool all_valid(const Control& processes) {
  const std::vector<Entry*> entries = entries_of(processes);
  return std::all_of(entries.begin(), entries.end(), [](Entry* entry) { return entry->isValid(); });
}

// What the list calls a process with this command line.
std::string name_of(int id, const std::string& command_line) {
  std::string name = command_line.substr(0, 255);
  if (name.empty()) return "[" + std::to_string(id) + "]";
  std::replace(name.begin(), name.end(), '\0', ' ');
  if (name.back() == ' ') name.pop_back();
  return name;
}

class ProcessControlTest : public ProcessTest {
 protected:
  Control processes_;
};

// ---- Of processes that there are ----

using ProcessControlRefresh = ProcessControlTest;

TEST_F(ProcessControlRefresh, IsWhatFillsTheList) {
  EXPECT_THAT(ids_of(processes_), IsEmpty());
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
  EXPECT_EQ(processes_.getNumberOfProcessesByName(nullptr), 0);
  EXPECT_EQ(processes_.getProcessEntryByPid(::getpid()), nullptr);
  EXPECT_EQ(processes_.getNextProcessEntryByName("", nullptr), nullptr);
  processes_.cleanup();
  EXPECT_THAT(ids_of(processes_), IsEmpty());
}

TEST_F(ProcessControlRefresh, ListsAllProcessesInTheOrderOfProc) {
  const Sleeper sleeper({"sleep", "10"});
  processes_.refresh(false);
  std::vector<Seen> expected;
  for (const int id : listed_processes()) {
    expected.push_back({id, name_of(id, command_line_of(id).value())});
  }
  EXPECT_EQ(seen(processes_), expected);
  EXPECT_THAT(ids_of(processes_), testing::IsSupersetOf({1, ::getpid(), sleeper.id()}));
  EXPECT_TRUE(all_valid(processes_));
}

TEST_F(ProcessControlRefresh, GivesTheSameTwice) {
  const Sleeper sleeper({"sleep", "10"});
  processes_.refresh(false);
  const std::vector<Seen> first = seen(processes_);
  const int count = processes_.getNumberOfProcesses();
  processes_.refresh(false);
  EXPECT_EQ(seen(processes_), first);
  EXPECT_EQ(processes_.getNumberOfProcesses(), count);
}

TEST_F(ProcessControlRefresh, NamesProcessesByTheirCommandLines) {
  const auto name = [this](std::vector<std::string> arguments) {
    const Sleeper sleeper(std::move(arguments));
    processes_.refresh(false);
    return std::string(processes_.getProcessEntryByPid(sleeper.id())->getName());
  };
  EXPECT_EQ(name({"sleep", "10"}), "sleep 10");
  EXPECT_EQ(name({"a daemon (with) blanks", "-x  y"}), "a daemon (with) blanks -x  y");
  EXPECT_EQ(name({"(((", ")"}), "((( )");
  EXPECT_EQ(name({""}), "");
  EXPECT_EQ(name({"", "a"}), " a");
  EXPECT_EQ(name({"a", ""}), "a ");
  EXPECT_EQ(name({"a "}), "a ");
  EXPECT_EQ(name({std::string(254, 'x')}), std::string(254, 'x'));
  EXPECT_EQ(name({std::string(255, 'x')}), std::string(255, 'x'));
  EXPECT_EQ(name({std::string(256, 'x'), "y"}), std::string(255, 'x'));
  EXPECT_EQ(name({std::string(253, 'x'), "yz"}), std::string(253, 'x') + " y");
  EXPECT_EQ(name({std::string(254, 'x'), "yz"}), std::string(254, 'x'));
}

TEST_F(ProcessControlRefresh, CountsNoProcessWithoutACommandLine) {
  processes_.refresh(false);
  const int count = processes_.getNumberOfProcesses();
  EXPECT_EQ(count, processes_.getNumberOfProcessesByName(nullptr));
  const Sleeper ended({"sleep"});
  ended.end();
  const Sleeper nameless({""});
  processes_.refresh(false);
  EXPECT_EQ(processes_.getNumberOfProcesses(), count + 1) << "an empty name is a command line";
  EXPECT_EQ(processes_.getNumberOfProcessesByName(nullptr), count + 2);
  EXPECT_EQ(processes_.getProcessEntryByPid(ended.id())->getName(),
            "[" + std::to_string(ended.id()) + "]");
}

TEST_F(ProcessControlRefresh, UpdatesByRemovingAndAppending) {
  const Sleeper first({"first"});
  Sleeper second({"second"});
  const Sleeper third({"third"});
  processes_.refresh(false);
  const int count = processes_.getNumberOfProcesses();
  std::vector<Entry*> expected = entries_of(processes_);
  const int gone = second.id();
  expected.erase(
      std::find(expected.begin(), expected.end(), processes_.getProcessEntryByPid(gone)));

  second.remove();
  const Sleeper fourth({"fourth"});
  processes_.refresh(true);
  expected.push_back(processes_.getProcessEntryByPid(fourth.id()));
  ASSERT_NE(expected.back(), nullptr);
  EXPECT_EQ(entries_of(processes_), expected);
  EXPECT_EQ(processes_.getProcessEntryByPid(gone), nullptr);
  EXPECT_STREQ(expected.back()->getName(), "fourth");
  EXPECT_EQ(processes_.getNumberOfProcesses(), count);
  EXPECT_TRUE(all_valid(processes_));
}

TEST_F(ProcessControlRefresh, UpdatesAnEmptyListToAFullOne) {
  processes_.refresh(true);
  Control anew;
  anew.refresh(false);
  EXPECT_EQ(seen(processes_), seen(anew));
  EXPECT_EQ(processes_.getNumberOfProcesses(), anew.getNumberOfProcesses());
  EXPECT_TRUE(all_valid(processes_));
}

TEST_F(ProcessControlRefresh, KnowsFiveHundredProcesses) {
  const int many = std::max(support::rounds(500), 30);
  const auto end = static_cast<std::size_t>(many);
  std::deque<Sleeper> sleepers;
  for (int i = 0; i < many; ++i) {
    sleepers.emplace_back(std::vector{"sleeper"s, std::to_string(i)});
  }
  processes_.refresh(false);
  EXPECT_EQ(processes_.getNumberOfProcessesByName("sleeper "), many);
  for (std::size_t i = 0; i < end; ++i) {
    const Entry* const entry = processes_.getProcessEntryByPid(sleepers[i].id());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->getName(), "sleeper " + std::to_string(i));
  }

  std::vector<Entry*> expected = entries_of(processes_);
  const int count = processes_.getNumberOfProcesses();
  processes_.refresh(true);
  EXPECT_EQ(entries_of(processes_), expected);

  int removed = 0;
  for (std::size_t i = 0; i < end; ++i) {
    if (i % 3 == 1 && i % 7 != 0) continue;
    Entry* const gone = processes_.getProcessEntryByPid(sleepers[i].id());
    expected.erase(std::find(expected.begin(), expected.end(), gone));
    sleepers[i].remove();
    ++removed;
  }
  processes_.refresh(true);
  EXPECT_EQ(entries_of(processes_), expected);
  EXPECT_EQ(processes_.getNumberOfProcesses(), count - removed);
  EXPECT_EQ(processes_.getNumberOfProcessesByName("sleeper "), many - removed);
}

// ---- Of processes that die meanwhile ----

TEST_F(ProcessControlRefresh, SkipsAProcessThatDiesBeforeItIsLookedAt) {
  const Sleeper first({"first"});
  Sleeper second({"second"});
  const Sleeper third({"third"});
  ASSERT_LT(first.id(), second.id()) << "ids have begun anew";
  const int gone = second.id();
  processes_.refresh(false);
  const int count = processes_.getNumberOfProcesses();
  processes_.cleanup();

  // As the kernel lists a folder, and reads from a file, at once.
  int reads = 0;
  run_with_failing_calls({FailingCall{SystemCall::kRead,
                                      0,
                                      0,
                                      0,
                                      {},
                                      [&](const support::CallArguments&) {
                                        if (++reads == 1) second.remove();
                                        return std::optional<std::int64_t>();
                                      }}},
                         [this] { processes_.refresh(false); });
  EXPECT_GE(reads, 3);
  EXPECT_EQ(processes_.getProcessEntryByPid(gone), nullptr);
  EXPECT_NE(processes_.getProcessEntryByPid(third.id()), nullptr);
  EXPECT_EQ(processes_.getNumberOfProcesses(), count - 1);
}

TEST_F(ProcessControlRefresh, ListsAProcessThatDiesWhileItIsLookedAt) {
  Sleeper sleeper({"sleeper"});
  const int gone = sleeper.id();
  processes_.refresh(false);
  ASSERT_EQ(ids_of(processes_).back(), gone);
  const auto all = static_cast<int>(ids_of(processes_).size());
  const int count = processes_.getNumberOfProcesses();

  int reads = 0;
  run_with_failing_calls({FailingCall{SystemCall::kRead,
                                      0,
                                      0,
                                      0,
                                      {},
                                      [&](const support::CallArguments&) {
                                        if (++reads == all) sleeper.remove();
                                        return std::optional<std::int64_t>();
                                      }}},
                         [this] { processes_.refresh(false); });
  EXPECT_EQ(reads, all);
  EXPECT_EQ(seen(processes_).back(), (Seen{gone, "[" + std::to_string(gone) + "]"}));
  EXPECT_EQ(processes_.getNumberOfProcesses(), count - 1);

  processes_.refresh(true);
  EXPECT_EQ(processes_.getProcessEntryByPid(gone), nullptr);
  EXPECT_EQ(processes_.getNumberOfProcesses(), count - 2) << "it has never been counted";
}

TEST_F(ProcessControlRefresh, EndsWellWhileProcessesComeAndGo) {
  const Sleeper first({"stays"});
  std::atomic<bool> done(false);
  std::thread others([&done] {
    while (!done) const Sleeper passing({"passes"});
  });
  const Sleeper second({"stays"});
  processes_.refresh(false);
  for (int i = support::rounds(300); i > 0; --i) {
    processes_.refresh(i % 8 != 0);
    EXPECT_EQ(processes_.getNumberOfProcessesByName("stays"), 2);
    std::vector<int> ids = ids_of(processes_);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << "one is listed twice";
    EXPECT_TRUE(all_valid(processes_));
  }
  done = true;
  others.join();
  processes_.refresh(true);
  EXPECT_EQ(processes_.getNumberOfProcessesByName("passes"), 0);
  EXPECT_EQ(ids_of(processes_).size(), listed_processes().size());
}

// ---- Of invented processes ----

class ProcessControlOf : public ProcessControlTest {
 protected:
  const InventedProcesses proc_;
};

TEST_F(ProcessControlOf, FoldersWhoseNamesAreNumbers) {
  proc_.add(kInvented, "yes\0"s);
  proc_.add("5000002x", "no\0"s);
  proc_.add("x5000003", "no\0"s);
  proc_.add("-5000004", "no\0"s);
  proc_.folder().put("5000005", "a file");
  std::filesystem::create_directory_symlink(proc_.folder().at("5000001"),
                                            proc_.folder().at("5000006"));
  proc_.folder().make_folder("5000007");  // without a command line
  proc_.add("2147483648", "no process\0"s);
  proc_.add("99999999999999999999", "no process\0"s);
  processes_.refresh(false);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "yes"}));
  EXPECT_EQ(processes_.getNumberOfProcesses(), 1);
}

TEST_F(ProcessControlOf, AFolderWithMoreDigitsThanItsIdHas) {
  proc_.add(kInvented, "name\0"s);
  proc_.add("0005000001", "not looked at\0"s);
  processes_.refresh(false);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "name"}, Seen{kInvented, "name"}));
  proc_.add(kInvented, "");
  processes_.refresh(false);
  EXPECT_THAT(seen(processes_), testing::UnorderedElementsAre(Seen{kInvented, "[5000001]"},
                                                              Seen{kInvented, "[0005000001]"}));
}

TEST_F(ProcessControlOf, MembersInOrder) {
  for (int i = 0; i < 3; ++i) proc_.add(kInvented + i, "name\0"s);
  EXPECT_EQ(member_behind<const void*>(1, &processes_), nullptr);
  EXPECT_EQ(member_behind<int>(2, &processes_), 0);
  processes_.refresh(false);
  EXPECT_EQ(member_behind<const void*>(1, &processes_), entries_of(processes_).front());
  EXPECT_EQ(member_behind<int>(2, &processes_), 3);
}

TEST_F(ProcessControlOf, TheLargestId) {
  proc_.add(INT_MAX, "");
  processes_.refresh(false);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{INT_MAX, "[2147483647]"}));
}

TEST_F(ProcessControlOf, CommandLinesOfAllKinds) {
  const std::vector<std::string> kinds = {
      "",
      "\0"s,
      "\0\0"s,
      " ",
      "a",
      "a\0b\0"s,
      "rewritten by the process  ",
      std::string(253, 'x') + "\0\0"s,
      std::string(254, 'x') + "\0y\0"s,
      std::string(255, 'x'),
      std::string(255, '\0'),
      std::string(254, 'x') + "  ",
      std::string(5000, 'x'),
      "\xff\x80\n\t\0"s,
  };
  for (const std::string& kind : kinds) {
    proc_.add(kInvented, kind);
    processes_.refresh(false);
    EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, name_of(kInvented, kind)}));
    EXPECT_EQ(processes_.getNumberOfProcesses(), kind.empty() ? 0 : 1);
  }
}

TEST_F(ProcessControlOf, ProcessesThatKeepTheirOldNamesInUpdates) {
  proc_.add(kInvented, "old\0"s);
  processes_.refresh(false);
  proc_.add(kInvented, "new\0"s);
  processes_.refresh(true);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "old"}));
  proc_.add(kInvented, "");
  processes_.refresh(true);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "old"}));
  EXPECT_EQ(processes_.getNumberOfProcesses(), 1);
  std::filesystem::remove(proc_.folder().at(std::to_string(kInvented) + "/cmdline"));
  processes_.refresh(true);
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "old"}));
  processes_.refresh(false);
  EXPECT_THAT(seen(processes_), IsEmpty());
}

TEST_F(ProcessControlOf, ProcessesThatTheCountDoesNotKnowWhenTheyGo) {
  for (int i = 0; i < 3; ++i) proc_.add(kInvented + i, "");
  proc_.add(kInvented + 3, "counted\0"s);
  processes_.refresh(false);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 1);
  proc_.remove(kInvented);
  processes_.refresh(true);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
  for (int i = 1; i < 4; ++i) proc_.remove(kInvented + i);
  processes_.refresh(true);
  EXPECT_EQ(processes_.getNumberOfProcesses(), -3);
  EXPECT_THAT(seen(processes_), IsEmpty());
  processes_.refresh(false);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
}

TEST_F(ProcessControlOf, ProcessesThatAreRemovedAtEachPlaceOfTheList) {
  constexpr int kMany = 5;
  for (unsigned removed = 0; removed < 1U << kMany; ++removed) {
    for (int i = 0; i < kMany; ++i) proc_.add(kInvented + i, "name\0"s);
    processes_.refresh(false);
    std::vector<Entry*> expected;
    for (Entry* const entry : entries_of(processes_)) {
      const int place = entry->getPid() - kInvented;
      if ((removed >> static_cast<unsigned>(place) & 1U) != 0) {
        proc_.remove(entry->getPid());
      } else {
        expected.push_back(entry);
      }
    }
    processes_.refresh(true);
    EXPECT_EQ(entries_of(processes_), expected) << removed;
    EXPECT_EQ(processes_.getNumberOfProcesses(), static_cast<int>(expected.size()));
  }
}

// Beside the list as it would be told in words.
class Model {
 public:
  void refresh(bool update, const std::map<int, std::string>& running) {
    if (!update) {
      list_.clear();
      count_ = 0;
    }
    std::vector<Seen> kept;
    std::set<int> known;
    for (const Seen& entry : list_) {
      if (running.count(entry.pid) == 0) {
        --count_;
        continue;
      }
      kept.push_back(entry);
      known.insert(entry.pid);
    }
    for (const int id : listed_processes()) {
      if (known.count(id) != 0) continue;
      const std::string& command_line = running.at(id);
      kept.push_back({id, name_of(id, command_line)});
      if (!command_line.empty()) ++count_;
    }
    list_ = std::move(kept);
  }

  [[nodiscard]] const std::vector<Seen>& list() const { return list_; }
  [[nodiscard]] int count() const { return count_; }

 private:
  std::vector<Seen> list_;
  int count_ = 0;
};

TEST_F(ProcessControlOf, ProcessesThatComeAndGoAtRandom) {
  std::mt19937 random(52);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  const std::vector<std::string> command_lines = {"", "\0"s, "init\0"s,
                                                  "sleep\0"
                                                  "10\0"s,
                                                  std::string(300, 'x')};
  std::map<int, std::string> running;
  Model model;
  for (int i = support::rounds(300); i > 0; --i) {
    for (unsigned changes = below(6); changes > 0; --changes) {
      const int id = kInvented + static_cast<int>(below(24));
      if (running.erase(id) != 0) proc_.remove(id);
      if (below(3) == 0) continue;
      running[id] = command_lines[below(static_cast<unsigned>(command_lines.size()))];
      proc_.add(id, running[id]);
    }
    const bool update = below(10) != 0;
    processes_.refresh(update);
    model.refresh(update, running);
    ASSERT_EQ(seen(processes_), model.list());
    ASSERT_EQ(processes_.getNumberOfProcesses(), model.count());
    ASSERT_TRUE(all_valid(processes_));
  }
}

// ---- Lookups ----

class ProcessControlLookups : public ProcessControlOf {
 protected:
  // In the order of the list.
  ProcessControlLookups() {
    for (const auto& [id, command_line] :
         std::vector<std::pair<int, std::string>>{{11, "sshd\0-D\0"s},
                                                  {12, "ssh\0"s},
                                                  {13, "ss\0"s},
                                                  {14, "ssh\0host\0"s},
                                                  {15, ""},
                                                  {16, "xssh\0"s},
                                                  {17, "\0"s}}) {
      proc_.add(kInvented + id, command_line);
      processes_.refresh(true);
    }
  }

  std::vector<int> found(const char* name) {
    std::vector<int> ids;
    const Entry* entry = nullptr;
    while ((entry = processes_.getNextProcessEntryByName(name, entry)) != nullptr) {
      ids.push_back(entry->getPid() - kInvented);
    }
    EXPECT_EQ(processes_.getNumberOfProcessesByName(name), static_cast<int>(ids.size()));
    return ids;
  }
};

TEST_F(ProcessControlLookups, FindTheBeginningsOfNames) {
  EXPECT_THAT(found("ssh"), ElementsAre(11, 12, 14));
  EXPECT_THAT(found("sshd"), ElementsAre(11));
  EXPECT_THAT(found("ss"), ElementsAre(11, 12, 13, 14));
  EXPECT_THAT(found("ssh host"), ElementsAre(14));
  EXPECT_THAT(found("ssh host "), IsEmpty());
  EXPECT_THAT(found("host"), IsEmpty());
  EXPECT_THAT(found("SSH"), IsEmpty());
  EXPECT_THAT(found("[50000"), ElementsAre(15));
}

TEST_F(ProcessControlLookups, FindAllForNoName) {
  EXPECT_THAT(found(""), ElementsAre(11, 12, 13, 14, 15, 16, 17));
  EXPECT_THAT(found(nullptr), ElementsAre(11, 12, 13, 14, 15, 16, 17));
}

TEST_F(ProcessControlLookups, FindNothingBehindAnEntryOfAnotherList) {
  const Entry foreign(kInvented + 11, "sshd -D");
  EXPECT_EQ(processes_.getNextProcessEntryByName("ssh", &foreign), nullptr);
  EXPECT_EQ(processes_.getNextProcessEntryByName(nullptr, &foreign), nullptr);
}

TEST_F(ProcessControlLookups, FindNothingBehindTheLast) {
  const Entry* const last = processes_.getProcessEntryByPid(kInvented + 17);
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(processes_.getNextProcessEntryByName(nullptr, last), nullptr);
}

TEST_F(ProcessControlLookups, GoOnBehindAnEntryOfAnotherName) {
  const Entry* const other = processes_.getProcessEntryByPid(kInvented + 13);
  const Entry* const next = processes_.getNextProcessEntryByName("ssh", other);
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(next->getPid(), kInvented + 14);
}

TEST_F(ProcessControlLookups, FindIds) {
  EXPECT_STREQ(processes_.getProcessEntryByPid(kInvented + 14)->getName(), "ssh host");
  EXPECT_EQ(processes_.getProcessEntryByPid(kInvented + 18), nullptr);
  EXPECT_EQ(processes_.getProcessEntryByPid(0), nullptr);
  EXPECT_EQ(processes_.getProcessEntryByPid(-1), nullptr);
}

TEST_F(ProcessControlLookups, FindNothingAfterACleanup) {
  EXPECT_EQ(processes_.getNumberOfProcesses(), 6);
  processes_.cleanup();
  EXPECT_THAT(found(nullptr), IsEmpty());
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
}

// ---- isNumeric() ----

TEST(ProcessControlIsNumeric, IsTrueForDigitsAlone) {
  const Control processes;
  for (const char* const text : {"", "0", "12", "0123456789", "99999999999999999999"}) {
    EXPECT_TRUE(processes.isNumeric(text)) << text;
  }
  for (const char* const text : {"12a", "a12", "1 2", " 1", "-1", "+1", "1.0", "/", ":", "\xb2"}) {
    EXPECT_FALSE(processes.isNumeric(text)) << text;
  }
  EXPECT_FALSE(processes.isNumeric(nullptr));
}

// ---- Failures ----

using ProcessControlFailure = ProcessControlOf;

TEST_F(ProcessControlFailure, ToOpenProcLeavesAnEmptyList) {
  proc_.add(kInvented, "name\0"s);
  processes_.refresh(false);
  {
    const support::NoMoreDescriptors limit;
    processes_.refresh(false);
  }
  EXPECT_THAT(seen(processes_), IsEmpty());
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
}

TEST_F(ProcessControlFailure, ToOpenProcLeavesAnUpdatedListWithNoEntryValid) {
  proc_.add(kInvented, "name\0"s);
  proc_.add(kInvented + 1, "name\0"s);
  processes_.refresh(false);
  const std::vector<Entry*> before = entries_of(processes_);
  {
    const support::NoMoreDescriptors limit;
    processes_.refresh(true);
  }
  EXPECT_EQ(entries_of(processes_), before);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 2);
  for (Entry* const entry : before) EXPECT_FALSE(entry->isValid());
  processes_.refresh(true);
  EXPECT_EQ(entries_of(processes_), before);
  EXPECT_TRUE(all_valid(processes_));
}

TEST_F(ProcessControlFailure, ToOpenACommandLineKeepsTheProcessOutUnlessItIsKnown) {
  proc_.add(kInvented, "known\0"s);
  processes_.refresh(false);
  proc_.add(kInvented + 1, "new\0"s);
  {
    const support::NoMoreDescriptors limit(1);
    processes_.refresh(true);
  }
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "known"}));
  {
    const support::NoMoreDescriptors limit(1);
    processes_.refresh(false);
  }
  EXPECT_THAT(seen(processes_), IsEmpty());
}

TEST_F(ProcessControlFailure, ToReadACommandLineIsAsIfThereWereNone) {
  proc_.add(kInvented, "name\0"s);
  run_with_failing_calls({{SystemCall::kRead, ESRCH}}, [this] { processes_.refresh(false); });
  EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "[5000001]"}));
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
}

TEST_F(ProcessControlFailure, BySignalsIsNone) {
  proc_.add(kInvented, "name\0"s);
  for (const SystemCall call : {SystemCall::kOpen, SystemCall::kList, SystemCall::kRead}) {
    run_with_failing_calls({FailingCall{call, EINTR, 0, 3}}, [this] { processes_.refresh(false); });
    EXPECT_THAT(seen(processes_), ElementsAre(Seen{kInvented, "name"}));
  }
}

TEST_F(ProcessControlFailure, IsNoneForAThreadThatIsCancelled) {
  for (int i = 0; i < 4; ++i) proc_.add(kInvented + i, "name\0"s);
  EXPECT_TRUE(support::finishes_though_cancelled([this] { processes_.refresh(false); }));
  EXPECT_EQ(processes_.getNumberOfProcesses(), 4);
  proc_.remove(kInvented);
  EXPECT_TRUE(support::finishes_though_cancelled([this] { processes_.refresh(true); }));
  EXPECT_EQ(processes_.getNumberOfProcesses(), 3);
  EXPECT_TRUE(all_valid(processes_));
}

TEST_F(ProcessControlFailure, ToAllocateLeavesAListThatIsWhole) {
  for (int i = 0; i < 4; ++i) proc_.add(kInvented + i, "name\0"s);
  bool happened = true;
  int thrown = 0;
  for (unsigned long nth = 1; happened; ++nth) {
    const Watch watch;
    {
      Control processes;
      {
        const support::FailingAllocation failing(nth);
        try {
          processes.refresh(false);
        } catch (const std::bad_alloc&) {
          ++thrown;
        }
        happened = failing.happened();
      }
      const auto listed = static_cast<int>(seen(processes).size());
      EXPECT_EQ(processes.getNumberOfProcesses(), listed);
      EXPECT_EQ(happened, listed < 4);
      processes.refresh(true);
      EXPECT_EQ(seen(processes).size(), 4U);
      EXPECT_EQ(processes.getNumberOfProcesses(), 4);
      EXPECT_TRUE(all_valid(processes));
    }
    EXPECT_EQ(watch.unfreed(), 0);
  }
  EXPECT_EQ(thrown, 8) << "an entry and a name for each process";
}

TEST_F(ProcessControlFailure, ToAllocateInAnUpdateKeepsTheEntriesThatAreThere) {
  for (int i = 0; i < 4; ++i) proc_.add(kInvented + i, "name\0"s);
  processes_.refresh(false);
  const std::vector<Entry*> before = entries_of(processes_);
  proc_.remove(kInvented);
  proc_.add(kInvented + 4, "name\0"s);
  {
    const support::FailingAllocation failing(2);  // the first is for the stream of /proc
    EXPECT_THROW(processes_.refresh(true), std::bad_alloc);
  }
  EXPECT_EQ(entries_of(processes_), before);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 4);
  processes_.refresh(true);
  EXPECT_EQ(seen(processes_).size(), 4U);
  EXPECT_EQ(processes_.getNumberOfProcesses(), 4);
}

TEST_F(ProcessControlFailure, ToListProcIsItsEnd) {
  proc_.add(kInvented, "name\0"s);
  processes_.refresh(false);
  run_with_failing_calls({{SystemCall::kList, EIO}}, [this] { processes_.refresh(true); });
  EXPECT_THAT(seen(processes_), IsEmpty());
  EXPECT_EQ(processes_.getNumberOfProcesses(), 0);
}

TEST_F(ProcessControlFailure, LeaksNothing) {
  for (int i = 0; i < 4; ++i) proc_.add(kInvented + i, "name\0"s);
  const Watch watch;
  {
    Control processes;
    for (int i = 0; i < 4; ++i) {
      processes.refresh(i % 2 == 1);
      proc_.remove(kInvented + i);
    }
  }
  EXPECT_EQ(watch.unfreed(), 0);
}

// ---- Derived classes ----

class Derived : public ProcessControl {
 public:
  explicit Derived(int& cleanups) : cleanups_(cleanups) {}
  void cleanup() override {
    ++cleanups_;
    if (keeps) return;
    ProcessControl::cleanup();
  }

  bool keeps = false;

 private:
  int& cleanups_;
};

TEST_F(ProcessControlOf, ADerivedClassThatIsAskedToCleanUp) {
  proc_.add(kInvented, "name\0"s);
  int cleanups = 0;
  {
    Derived processes(cleanups);
    processes.refresh(false);
    EXPECT_EQ(cleanups, 1);
    processes.refresh(true);
    EXPECT_EQ(cleanups, 1);
    processes.keeps = true;
    processes.refresh(false);
    EXPECT_THAT(seen(processes), ElementsAre(Seen{kInvented, "name"}, Seen{kInvented, "name"}))
        << "what it keeps stays in front";
    EXPECT_EQ(processes.getProcessEntryByPid(kInvented), entries_of(processes).front());
  }
  EXPECT_EQ(cleanups, 2) << "the destructor is its own class's";
}

}  // namespace
