#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// How the library compares with a floor: the median of the ratios of paired turns, and the
/// quartiles around it.
struct Ratio {
  std::string floor;
  double median;
  double lower;
  double upper;
};

/// What one row of the tables says, for one placement of client and server.
struct Row {
  std::string name;
  std::string placement;
  /// What one operation of the library takes, in microseconds: the median and the 99th percentile.
  double median;
  double p99;
  std::vector<Ratio> ratios;
};

/// One side of a comparison.
struct Side {
  std::string name;
  /// Makes an operation and returns the microseconds that it took.
  std::function<double()> once;
  /// Called before a turn, with the number of operations in it. May be empty.
  std::function<void(std::size_t times)> prepare;
};

/// How long a turn lasts, in microseconds, and how often each side has one.
struct Effort {
  double turn = 20'000;
  int rounds = 31;
};

/// Has the library and the floors take turns, in another order each time. The times of one round
/// make the ratios of that round, so that what the machine does otherwise hits both.
class Comparison {
 public:
  /// Of the library with the floors of these names.
  Comparison(std::string name, std::string placement, std::vector<std::string> floors)
      : name_(std::move(name)),
        placement_(std::move(placement)),
        floors_(std::move(floors)),
        ratios_(floors_.size()) {}

  /// All rounds of the effort. Called again with sides that have processes of their own, it takes
  /// out what a process is lucky or unlucky with for as long as it lives.
  void takeTurns(const Effort& effort, const Side& library, const std::vector<Side>& floors);
  /// Of all turns so far.
  Row row();

 private:
  std::string name_;
  std::string placement_;
  std::vector<std::string> floors_;
  std::vector<double> samples_;
  std::vector<std::vector<double>> ratios_;
};

/// A comparison whose sides have their turns once.
Row compare(const std::string& name, const std::string& placement, const Effort& effort,
            const Side& library, const std::vector<Side>& floors);

/// A size that was measured, with its unit.
struct Size {
  std::string name;
  long bytes;
};

/// A table in Markdown, one line a row: both placements side by side.
std::string table(const std::vector<Row>& rows);
std::string table(const std::vector<Size>& sizes);
/// The object `rows`, from a row's name and its placement to its figures, the object `sizes`, in
/// bytes, and `quiet`: whether nothing else was at work.
std::string json(const std::vector<Row>& rows, const std::vector<Size>& sizes, bool isQuiet);

}  // namespace bench
