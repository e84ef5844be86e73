// What benchmarks gave, and what is made of it.
#ifndef BENCH_SUPPORT_FIGURES_H
#define BENCH_SUPPORT_FIGURES_H

#include <optional>
#include <string>
#include <vector>

#include "support/comparison.h"

namespace bench {

enum class Unit { kNanoseconds, kBytes, kInstructions };

// The figures of one benchmark, one for each round.
class Figures {
 public:
  void add(double figure, Unit unit) {
    values_.push_back(figure);
    unit_ = unit;
  }
  void fail() { failed_ = true; }
  void add_system_calls(double count) { system_calls_ = count; }

  // A benchmark that failed once gives no figure, whatever its other rounds gave.
  [[nodiscard]] bool usable() const { return !failed_ && !values_.empty(); }
  [[nodiscard]] Unit unit() const { return unit_; }
  [[nodiscard]] double median() const { return quantile(0.5); }
  // How far the middle half reaches, in percent of the median.
  [[nodiscard]] double spread() const;
  // In each call, where instructions are counted.
  [[nodiscard]] double system_calls() const { return system_calls_; }

 private:
  [[nodiscard]] double quantile(double share) const;

  std::vector<double> values_;
  Unit unit_ = Unit::kNanoseconds;
  double system_calls_ = 0;
  bool failed_ = false;
};

// One line of the table.
struct Row {
  std::string work;
  Clock clock;
  Reference::Kind kind;
  std::string against;
  double goal;
  const Figures* ours;
  const Figures* reference;

  [[nodiscard]] bool usable() const { return ours->usable() && reference->usable(); }
  [[nodiscard]] double ratio() const { return ours->median() / reference->median(); }
  // A machine is noisy: a goal holds up to 15 % above it.
  [[nodiscard]] bool met() const { return ratio() <= goal * 1.15; }
};

}  // namespace bench

#endif
