// One measured figure of a benchmark, printed as a single machine-readable
// line that bench/run collects into its report:
//
//   BENCH {"figure": "...", "sdk": 0.148, "baseline": 0.065, "unit": "s", ...}
//
// `ratio` is SDK cost over baseline cost whatever the unit, so above 1 means
// the SDK is slower or bigger. Figures held to an absolute bound carry it in
// `limit` (in `unit`) and may have no baseline.
//
// Before it is printed a figure is checked for sense: a time must be
// positive and no longer than this process has run, any other quantity
// finite and not negative, and a ratio target needs a baseline measured
// here. A figure that fails says why in `invalid`, a line on stderr names
// it, and the benchmark's exit status (exitStatus()) becomes kImplausible.
#pragma once

#include <optional>
#include <string>

namespace zivora::bench {

struct BenchFigure {
  // The exit status of a benchmark that printed a figure failing its check.
  static constexpr int kImplausible = 3;

  std::string figure;
  double sdk = 0;
  std::optional<double> baseline;
  std::string unit;
  std::string target;
  std::optional<double> limit;
  std::optional<bool> met;
  // Why the figure cannot be right; empty while it is plausible.
  std::string invalid;

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

  // Fills `invalid` when the figure fails its check; the same figure back.
  BenchFigure& check();
  std::string line() const;
  // Checks, then prints the line (and, when invalid, the reason on stderr).
  void print();

  // 0, or kImplausible once an invalid figure was printed: what main returns.
  static int exitStatus();
  // Seconds since this process started: no time it measured can be longer.
  static double processSeconds();
};

}  // namespace zivora::bench
