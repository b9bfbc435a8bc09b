// One measured figure of a benchmark, printed as a single machine-readable
// line that bench/run collects into its report:
//
//   BENCH {"figure": "...", "sdk": 0.148, "baseline": 0.065, "unit": "s", ...}
//
// `ratio` is SDK cost over baseline cost whatever the unit, so above 1 means
// the SDK is slower or bigger. Figures held to an absolute bound carry it in
// `limit` (in `unit`) and may have no baseline.
#pragma once

#include <optional>
#include <string>

namespace zivora::bench {

struct BenchFigure {
  std::string figure;
  double sdk = 0;
  std::optional<double> baseline;
  std::string unit;
  std::string target;
  std::optional<double> limit;
  std::optional<bool> met;

  // SDK over baseline, when there is a baseline to divide by.
  std::optional<double> ratio() const;

  // The usual figure: met when the ratio is at most `maxRatio`.
  static BenchFigure withinRatio(std::string figure, double sdk, double baseline, std::string unit,
                                 double maxRatio);
  // Met when the SDK's figure stays below `limit`; the baseline is only shown.
  static BenchFigure belowLimit(std::string figure, double sdk, std::optional<double> baseline,
                                std::string unit, double limit, std::string target);
  // No pass mark: the figure, and its ratio if there is a baseline, are
  // stated for the reader.
  static BenchFigure stated(std::string figure, double sdk, std::optional<double> baseline,
                            std::string unit);

  std::string line() const;
  void print() const;
};

}  // namespace zivora::bench
