#include "bench/Measurement.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

double quantile(const std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

}  // namespace

Row summarise(Measurement measurement) {
  std::ranges::sort(measurement.floor);
  std::ranges::sort(measurement.library);
  const double median = quantile(measurement.library, 0.5);
  const double floorMedian = quantile(measurement.floor, 0.5);
  return {measurement.name, median, quantile(measurement.library, 0.99), floorMedian,
          median / floorMedian};
}

std::string table(const std::vector<Row>& rows) {
  std::string text =
      "| What | median, µs | 99 %, µs | floor's median, µs | ratio |\n|---|---:|---:|---:|---:|\n";
  for (const Row& row : rows) {
    text += fmt::format("| {} | {:.2f} | {:.2f} | {:.2f} | {:.3f} |\n", row.name, row.median,
                        row.p99, row.floorMedian, row.ratio);
  }
  return text;
}

std::string table(const std::vector<Size>& sizes) {
  std::string text = "| What | bytes |\n|---|---:|\n";
  for (const Size& size : sizes) text += fmt::format("| {} | {} |\n", size.name, size.bytes);
  return text;
}

std::string json(const std::vector<Row>& rows, const std::vector<Size>& sizes) {
  nlohmann::ordered_json whole{{"rows", nlohmann::json::object()},
                               {"sizes", nlohmann::json::object()}};
  for (const Row& row : rows) {
    whole["rows"][row.name] = {{"median_us", row.median},
                               {"p99_us", row.p99},
                               {"floor_median_us", row.floorMedian},
                               {"ratio", row.ratio}};
  }
  for (const Size& size : sizes) whole["sizes"][size.name] = size.bytes;
  return whole.dump(2) + "\n";
}

}  // namespace bench
