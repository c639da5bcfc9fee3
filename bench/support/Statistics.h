#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

namespace kolvex_bench {

struct Spread {
  double median = 0, least = 0, most = 0;
};

/// The value that @p share of the values stay under; 0 of none.
inline double Quantile(std::vector<double> values, double share) {
  if (values.empty()) {
    return 0;
  }
  std::sort(values.begin(), values.end());
  const auto at = static_cast<std::size_t>(share * static_cast<double>(values.size()));
  return values[std::min(at, values.size() - 1)];
}

inline Spread SpreadOf(const std::vector<double>& values) {
  return {Quantile(values, 0.5), Quantile(values, 0), Quantile(values, 1)};
}

inline nlohmann::json Json(const Spread& spread) {
  return {{"median", spread.median}, {"least", spread.least}, {"most", spread.most}};
}

}  // namespace kolvex_bench
