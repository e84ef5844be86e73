// The tests that each layer's program has: every scenario with every fault, as the table says.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <syslog.h>

#include "layer.h"
#include "observation.h"
#include "support/case_name.h"
#include "support/rounds.h"
#include "table.h"

namespace faults {
namespace {

// A call that is to fail, by the table's words.
struct Fault {
  std::string call;
  unsigned nth;  // 0: all
  std::string error;
  unsigned count;  // of the calls that there are

  friend bool operator<(const Fault& a, const Fault& b) {
    return std::tie(a.call, a.nth, a.error) < std::tie(b.call, b.nth, b.error);
  }
};

std::string text_of(const Fault& fault) {
  const std::string which = fault.nth == 0 ? "all calls" : "call " + std::to_string(fault.nth);
  return which + " of " + fault.call + " failing with " + fault.error;
}

// "copy_file_over_another", "String__operatorPlus".
std::string identifier_of(const std::string& name) {
  std::string identifier;
  for (const char byte : name) {
    if (byte == '+') {
      identifier += "Plus";
    } else if (byte == '=') {
      identifier += "Equals";
    } else {
      identifier += std::isalnum(static_cast<unsigned char>(byte)) != 0 ? byte : '_';
    }
  }
  return identifier;
}

struct NamedScenario {
  std::string name;  // as tests are named
  std::string layer;
  Scenario scenario;

  friend std::ostream& operator<<(std::ostream& out, const NamedScenario& named) {
    return out << named.scenario.name;
  }
};

std::vector<NamedScenario> named_scenarios() {
  const Layer all = layer();
  std::vector<NamedScenario> named;
  for (const Scenario& scenario : all.scenarios) {
    named.push_back({identifier_of(scenario.name), all.name, scenario});
  }
  return named;
}

class Faults : public testing::TestWithParam<NamedScenario> {
 protected:
  Faults() {
    if (scenario().surroundings) surroundings_ = scenario().surroundings();
    for (const Row& row : read_table_for_this_library(GetParam().layer)) {
      if (row.scenario == scenario().name) rows_.push_back(row);
    }
  }

  // What is printed must not take memory for a buffer meanwhile.
  static void SetUpTestSuite() {
    static char buffer[BUFSIZ];
    std::setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
  }

  // The log's time stamps need the time zone, which is read once.
  void SetUp() override {
    ::tzset();
    observer_ = std::make_unique<Observer>(scenario());
    observer_->warm_up();
  }

  void TearDown() override {
    for (const Row& row : rows_) {
      if (applied_.count(row.call) == 0 || row.optional || row.is_excuse()) continue;
      EXPECT_TRUE(used_.count(row.line) != 0) << where(row) << "this did not come up";
    }
  }

  [[nodiscard]] static const Scenario& scenario() { return GetParam().scenario; }

  [[nodiscard]] std::string where(const Row& row) const {
    return GetParam().layer + ".txt:" + std::to_string(row.line) + ": ";
  }

  // The outcome without a fault.
  [[nodiscard]] std::string expected_outcome() {
    for (const Row& row : rows_) {
      if (row.call != kNone) continue;
      used_.insert(row.line);
      return row.outcome;
    }
    ADD_FAILURE() << "no line of the table says what " << scenario().name
                  << " gives when nothing fails";
    return {};
  }

  void expect_nothing_left(const Observation& seen, const std::string& when) {
    EXPECT_EQ(seen.left_behind, "") << scenario().name << " with " << when << " has left this";
  }

  // What the table has for a fault is what is seen.
  void expect_outcome(const Fault& fault, int error, const Observation& seen) {
    EXPECT_TRUE(seen.failed) << text_of(fault) << ": it did not come to that";
    expect_nothing_left(seen, text_of(fault));
    applied_.insert(fault.call);
    std::string expected;
    for (const Row& row : rows_) {
      if (!is_about(row, fault)) continue;
      const std::string outcome =
          row.outcome == "same" ? expected_outcome() : with_error(row.outcome, error);
      if (seen.outcome == outcome) {
        used_.insert(row.line);
        return;
      }
      expected += "\n  " + where(row) + outcome;
    }
    ADD_FAILURE() << scenario().name << " with " << text_of(fault) << " gives\n  " << seen.outcome
                  << "\nand not" << (expected.empty() ? " what the table does not say" : expected);
  }

  // Each call of a kind, of so many, is one that has failed; and no line is about calls that are
  // not made.
  void expect_all_tried(const std::string& kind, unsigned count, const std::set<unsigned>& tried) {
    const bool excused =
        has_row([&](const Row& row) { return row.call == kind && row.is_excuse(); });
    std::string untried;
    for (unsigned nth = 1; nth <= count && !excused; ++nth) {
      if (tried.count(nth) + tried.count(0) == 0) untried += " " + std::to_string(nth);
    }
    EXPECT_EQ(untried, "") << "are calls of " << kind << " that " << scenario().name
                           << " makes and no line of the table has fail";
    EXPECT_TRUE(count > 0 || !is_expected(kind)) << scenario().name << " makes no call of " << kind;
  }

  // Whether the table says that every C library makes such calls here.
  [[nodiscard]] bool is_expected(const std::string& call) const {
    return has_row([&](const Row& row) { return row.call == call && !row.optional; });
  }

  template <typename Condition>
  [[nodiscard]] bool has_row(Condition condition) const {
    return std::any_of(rows_.begin(), rows_.end(), condition);
  }

  static bool is_about(const Row& row, const Fault& fault) {
    if (row.call != fault.call) return false;
    if (row.call == kMemory) return row.is_for(fault.nth, fault.count);
    const bool same_calls = fault.nth == 0 ? row.nth == "all" : row.is_for(fault.nth, fault.count);
    return same_calls &&
           std::find(row.errors.begin(), row.errors.end(), fault.error) != row.errors.end();
  }

  std::shared_ptr<void> surroundings_;
  std::vector<Row> rows_;
  std::unique_ptr<Observer> observer_;

 private:
  std::set<std::string> applied_;  // the kinds of which there was something to expect
  std::set<int> used_;             // the rows that were right, by line
};

// The errors that a row's call is to fail with. Its outcome is the same for all of them, and the
// board is slow: there each call takes the next of them.
std::vector<std::string> errors_for(const Row& row, unsigned nth) {
  if (support::stride() == 1 || row.errors.empty()) return row.errors;
  return {row.errors[nth % row.errors.size()]};
}

// The faults that the table has of a kind of call that the scenario makes so often.
std::set<Fault> faults_of(const std::vector<Row>& rows, const std::string& kind, unsigned count) {
  std::set<Fault> faults;
  for (const Row& row : rows) {
    if (row.call != kind) continue;
    for (unsigned nth = 0; nth <= count; ++nth) {
      if (nth == 0 ? row.nth != "all" : !row.is_for(nth, count)) continue;
      for (const std::string& error : errors_for(row, nth)) {
        faults.insert({kind, nth, error, count});
      }
    }
  }
  return faults;
}

TEST_P(Faults, OfCallsEndAsTheTableSays) {
  const Observation unharmed = observer_->with_nothing_failing();
  EXPECT_EQ(unharmed.outcome, expected_outcome());
  expect_nothing_left(unharmed, "nothing failing");
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    const std::string name(kKinds[kind].name);
    std::set<unsigned> tried;
    for (const Fault& fault : faults_of(rows_, name, unharmed.calls[kind])) {
      const int error = error_named(fault.error);
      expect_outcome(fault, error, observer_->with({kind, fault.nth, error}));
      tried.insert(fault.nth);
    }
    expect_all_tried(name, unharmed.calls[kind], tried);
  }
}

TEST_P(Faults, OfAllocationsEndAsTheTableSays) {
  constexpr unsigned kMost = 5000;
  const std::string memory(kMemory);
  unsigned nth = 1;
  Observation seen = observer_->with_failing_allocation(nth);
  while (seen.failed && nth < kMost) {
    expect_outcome({memory, nth, "ENOMEM", kMost}, ENOMEM, seen);
    seen = observer_->with_failing_allocation(++nth);
  }
  EXPECT_LT(nth, kMost) << "allocations without an end";
  EXPECT_EQ(seen.outcome, expected_outcome());
  expect_nothing_left(seen, "nothing failing");
  EXPECT_TRUE(nth > 1 || !is_expected(memory)) << scenario().name << " allocates nothing";
}

class FaultTableOf : public testing::TestWithParam<std::string> {};

TEST_P(FaultTableOf, HasAScenarioForEachLine) {
  std::set<std::string> names;
  for (const NamedScenario& named : named_scenarios()) names.insert(named.scenario.name);
  for (const Row& row : read_table(GetParam())) {
    EXPECT_TRUE(names.count(row.scenario) != 0) << "line " << row.line << ": " << row.scenario;
  }
}

INSTANTIATE_TEST_SUITE_P(Layer, FaultTableOf, testing::Values(layer().name),
                         [](const auto& layer_name) { return layer_name.param; });

INSTANTIATE_TEST_SUITE_P(Scenario, Faults, testing::ValuesIn(named_scenarios()),
                         support::CaseName());

}  // namespace
}  // namespace faults
