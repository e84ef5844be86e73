#include "support/figures.h"

#include <algorithm>
#include <cmath>

namespace bench {

double Figures::quantile(double share) const {
  std::vector<double> sorted = values_;
  std::sort(sorted.begin(), sorted.end());
  const double place = share * static_cast<double>(sorted.size() - 1);
  return sorted[static_cast<std::size_t>(std::lround(place))];
}

double Figures::spread() const { return 100 * (quantile(0.75) - quantile(0.25)) / median(); }

}  // namespace bench
