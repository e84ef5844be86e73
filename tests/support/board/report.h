// What people and other programs see of a run of tests.
#ifndef TESTS_SUPPORT_BOARD_REPORT_H
#define TESTS_SUPPORT_BOARD_REPORT_H

#include <cstddef>
#include <string>
#include <vector>

#include "support/board/runner.h"

namespace board {

// Prints a line for each test that ends, and the output of those that fail.
class Report : public Listener {
 public:
  explicit Report(std::size_t tests) : tests_(tests) {}

  void ended(const Result& result) override;
  void waiting_for(const std::vector<std::string>& names) override;

  // The results as a JUnit file with ctest's marks: status "run", "fail" or "notrun". Throws
  // std::runtime_error.
  void write_junit(const std::string& path) const;

  // Prints the counts and the names of what failed; returns whether nothing did.
  [[nodiscard]] bool summarise() const;

 private:
  [[nodiscard]] std::vector<std::string> names_of(Outcome outcome) const;

  std::size_t tests_;
  std::vector<Result> results_;
  Clock::time_point start_ = Clock::now();
};

}  // namespace board

#endif
