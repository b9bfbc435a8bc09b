#include "BenchFigure.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace zivora::bench {

namespace {

// JSON has no NaN or infinity; a broken measurement becomes null.
nlohmann::json number(std::optional<double> value) {
  if (!value || !std::isfinite(*value)) return nullptr;
  return *value;
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

std::string BenchFigure::line() const {
  nlohmann::ordered_json json;
  json["figure"] = figure;
  json["sdk"] = number(sdk);
  json["baseline"] = number(baseline);
  json["unit"] = unit;
  json["target"] = target;
  json["ratio"] = number(ratio());
  json["limit"] = number(limit);
  json["met"] = met ? nlohmann::json(*met) : nlohmann::json(nullptr);
  return "BENCH " + json.dump();
}

void BenchFigure::print() const {
  std::printf("%s\n", line().c_str());
  std::fflush(stdout);
}

}  // namespace zivora::bench
