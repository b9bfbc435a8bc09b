#include "BenchFigure.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace zivora::bench {

namespace {

using Clock = std::chrono::steady_clock;

// Taken while the program starts, before main() measures anything.
const Clock::time_point processStart = Clock::now();
std::atomic<bool> printedInvalid{false};

// JSON has no NaN or infinity; a broken measurement becomes null.
nlohmann::json number(std::optional<double> value) {
  if (!value || !std::isfinite(*value)) return nullptr;
  return *value;
}

// Seconds per unit for the units that are times; nothing for the others.
std::optional<double> secondsPer(const std::string& unit) {
  if (unit == "s") return 1.0;
  if (unit == "ms") return 1e-3;
  if (unit == "us") return 1e-6;
  if (unit == "ns") return 1e-9;
  return std::nullopt;
}

// Why `value` cannot be a measurement in `unit` of this run; "" when it can.
std::string implausible(const char* side, double value, const std::string& unit) {
  if (!std::isfinite(value)) return fmt::format("the {} figure is not a number", side);
  const auto scale = secondsPer(unit);
  if (!scale) {
    return value < 0 ? fmt::format("the {} figure {} {} is negative", side, value, unit) : "";
  }
  if (value <= 0) return fmt::format("the {} time {} {} is not positive", side, value, unit);
  const double run = BenchFigure::processSeconds();
  if (value * *scale > run) {
    return fmt::format("the {} time {} {} is longer than this run ({:.1f} s so far)", side, value,
                       unit, run);
  }
  return "";
}

}  // namespace

std::optional<double> BenchFigure::ratio() const {
  if (!baseline || *baseline == 0) return std::nullopt;
  return sdk / *baseline;
}

BenchFigure BenchFigure::withinRatio(std::string figure, double sdk, double baseline,
                                     std::string unit, double maxRatio) {
  BenchFigure result = stated(std::move(figure), sdk, baseline, std::move(unit));
  result.target = fmt::format("ratio <= {}", maxRatio);
  const auto ratio = result.ratio();
  result.met = ratio && *ratio <= maxRatio;
  return result;
}

BenchFigure BenchFigure::belowLimit(std::string figure, double sdk, std::optional<double> baseline,
                                    std::string unit, double limit, std::string target) {
  BenchFigure result;
  result.figure = std::move(figure);
  result.sdk = sdk;
  result.baseline = baseline;
  result.unit = std::move(unit);
  result.target = std::move(target);
  result.limit = limit;
  result.met = sdk <= limit;
  return result;
}

BenchFigure BenchFigure::stated(std::string figure, double sdk, std::optional<double> baseline,
                                std::string unit) {
  BenchFigure result;
  result.figure = std::move(figure);
  result.sdk = sdk;
  result.baseline = baseline;
  result.unit = std::move(unit);
  result.target = baseline ? "ratio stated" : "stated";
  return result;
}

BenchFigure& BenchFigure::check() {
  invalid = implausible("SDK", sdk, unit);
  if (invalid.empty() && baseline) invalid = implausible("baseline", *baseline, unit);
  if (invalid.empty() && target.starts_with("ratio") && !ratio())
    invalid = "a ratio target without a baseline measured in this run";
  return *this;
}

double BenchFigure::processSeconds() {
  return std::chrono::duration<double>(Clock::now() - processStart).count();
}

int BenchFigure::exitStatus() { return printedInvalid ? kImplausible : 0; }

std::string BenchFigure::line() const {
  nlohmann::ordered_json json;
  json["figure"] = figure;
  json["sdk"] = number(sdk);
  json["baseline"] = number(baseline);
  json["unit"] = unit;
  json["target"] = target;
  json["ratio"] = number(ratio());
  json["limit"] = number(limit);
  // An invalid figure is neither met nor missed.
  json["met"] = met && invalid.empty() ? nlohmann::json(*met) : nlohmann::json(nullptr);
  if (!invalid.empty()) json["invalid"] = invalid;
  return "BENCH " + json.dump();
}

void BenchFigure::print() {
  check();
  if (!invalid.empty()) {
    printedInvalid = true;
    std::fprintf(stderr, "bench: figure \"%s\" is invalid: %s\n", figure.c_str(), invalid.c_str());
  }
  std::printf("%s\n", line().c_str());
  std::fflush(stdout);
}

}  // namespace zivora::bench
