#include "bench/Measurement.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>

namespace bench {
namespace {

double quantile(std::vector<double>& values, double share) {
  const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

/// A side with what is known of its turns.
struct Runner {
  const Side& side;
  std::size_t times;

  /// Finds out how many operations a turn has, by the whole time that they take: what is measured
  /// of them may be a part of it.
  Runner(const Side& one, double turn) : side(one), times(1) {
    using Microseconds = std::chrono::duration<double, std::micro>;
    double spent = 0;
    for (std::size_t count = 1; spent < turn; count *= 2) {
      const auto begin = std::chrono::steady_clock::now();
      static_cast<void>(takeTurn(count));
      spent = Microseconds(std::chrono::steady_clock::now() - begin).count();
      times = std::max<std::size_t>(
          1, static_cast<std::size_t>(static_cast<double>(count) * turn / std::max(spent, 1.0)));
    }
  }

  [[nodiscard]] std::vector<double> takeTurn(std::size_t count) const {
    if (side.prepare) side.prepare(count);
    std::vector<double> samples(count);
    std::ranges::generate(samples, side.once);
    return samples;
  }

  static double sum(const std::vector<double>& samples) {
    return std::accumulate(samples.begin(), samples.end(), 0.0);
  }
};

std::string ratioText(const Ratio& ratio) {
  return fmt::format("{:.3f} ({:.3f} to {:.3f})", ratio.median, ratio.lower, ratio.upper);
}

}  // namespace

void Comparison::takeTurns(const Effort& effort, const Side& library,
                           const std::vector<Side>& floors) {
  std::vector<Runner> sides{{library, effort.turn}};
  for (const Side& floor : floors) sides.emplace_back(floor, effort.turn);
  std::vector<std::size_t> order(sides.size());
  std::iota(order.begin(), order.end(), 0U);
  std::mt19937 random(std::random_device{}());

  for (int round = 0; round < effort.rounds; ++round) {
    std::ranges::shuffle(order, random);
    std::vector<double> means(sides.size());
    for (const std::size_t index : order) {
      const auto turn = sides[index].takeTurn(sides[index].times);
      means[index] = Runner::sum(turn) / static_cast<double>(turn.size());
      if (index == 0) samples_.insert(samples_.end(), turn.begin(), turn.end());
    }
    for (std::size_t floor = 0; floor < floors.size(); ++floor) {
      ratios_[floor].push_back(means[0] / means[floor + 1]);
    }
  }
}

Row Comparison::row() {
  Row row{name_, placement_, quantile(samples_, 0.5), quantile(samples_, 0.99), {}};
  for (std::size_t floor = 0; floor < floors_.size(); ++floor) {
    std::vector<double>& values = ratios_[floor];
    row.ratios.push_back(
        {floors_[floor], quantile(values, 0.5), quantile(values, 0.25), quantile(values, 0.75)});
  }
  return row;
}

Row compare(const std::string& name, const std::string& placement, const Effort& effort,
            const Side& library, const std::vector<Side>& floors) {
  std::vector<std::string> names;
  for (const Side& floor : floors) names.push_back(floor.name);
  Comparison comparison(name, placement, names);
  comparison.takeTurns(effort, library, floors);
  return comparison.row();
}

std::string table(const std::vector<Row>& rows) {
  std::string text =
      "| What | processors | median, µs | 99 %, µs | beside | ratio (quartiles) |\n"
      "|---|---|---:|---:|---|---:|\n";
  for (const Row& row : rows) {
    for (const Ratio& ratio : row.ratios) {
      text += fmt::format("| {} | {} | {:.2f} | {:.2f} | {} | {} |\n", row.name, row.placement,
                          row.median, row.p99, ratio.floor, ratioText(ratio));
    }
  }
  return text;
}

std::string table(const std::vector<Size>& sizes) {
  std::string text = "| What | bytes |\n|---|---:|\n";
  for (const Size& size : sizes) text += fmt::format("| {} | {} |\n", size.name, size.bytes);
  return text;
}

std::string json(const std::vector<Row>& rows, const std::vector<Size>& sizes, bool isQuiet) {
  nlohmann::ordered_json whole{
      {"quiet", isQuiet}, {"rows", nlohmann::json::object()}, {"sizes", nlohmann::json::object()}};
  for (const Row& row : rows) {
    auto& figures = whole["rows"][row.name][row.placement];
    figures = {{"median_us", row.median}, {"p99_us", row.p99}};
    for (const Ratio& ratio : row.ratios) {
      figures["ratios"][ratio.floor] = {
          {"median", ratio.median}, {"lower", ratio.lower}, {"upper", ratio.upper}};
    }
  }
  for (const Size& size : sizes) whole["sizes"][size.name] = size.bytes;
  return whole.dump(2) + "\n";
}

}  // namespace bench
