#include "support/figures.h"

#include <algorithm>

namespace bench {

double Figures::quantile(double share) const {
  std::vector<double> sorted = values_;
  std::sort(sorted.begin(), sorted.end());
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5)];
}

double Figures::spread() const { return 100 * (quantile(0.75) - quantile(0.25)) / median(); }

}  // namespace bench
