#pragma once

#include <string>
#include <vector>

namespace bench {

/// The times of one thing on the floor and of the same thing by the library, in microseconds.
struct Measurement {
  std::string name;
  std::vector<double> floor;
  std::vector<double> library;
};

/// What is said of a measurement: times in microseconds, and how the medians compare.
struct Row {
  std::string name;
  double median;
  double p99;
  double floorMedian;
  double ratio;
};

/// Neither side may be empty.
Row summarise(Measurement measurement);

/// A size that was measured, with its unit.
struct Size {
  std::string name;
  long bytes;
};

/// A table in Markdown, one line a row.
std::string table(const std::vector<Row>& rows);
std::string table(const std::vector<Size>& sizes);
/// The object `rows`, from a row's name to its figures, and the object `sizes`, in bytes.
std::string json(const std::vector<Row>& rows, const std::vector<Size>& sizes);

}  // namespace bench
