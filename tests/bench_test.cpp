// The benchmark checks every answer that it gets; here it has few samples and no time to keep.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/Program.h"

namespace {

using Names = std::vector<std::string>;

constexpr const char* theFloor = "the bare calls";
const Names listFloors{"the same pieces", "a send a record"};
const Names clientFloors{"the same pieces", "a send a record", "one send, large reads"};

/// Each row, and what it is compared with.
const std::map<std::string, Names>& rows() {
  static const std::map<std::string, Names> all{
      {"round trip: integer", {theFloor}},
      {"round trip: text", {theFloor}},
      {"round trip: media bounds", {theFloor}},
      {"integer, asked of 1 listeners", {theFloor}},
      {"integer, asked of 4 listeners", {theFloor}},
      {"integer, asked of 16 listeners", {theFloor}},
      {"client library: integer", {theFloor}},
      {"services: 0", listFloors},
      {"services: 1", listFloors},
      {"services: 10", listFloors},
      {"services: 200", listFloors},
      {"services: 2000", listFloors},
      {"services: 20000", listFloors},
      {"client library: 10 services", clientFloors},
      {"client library: 200 services", clientFloors},
      {"client library: 2000 services", clientFloors},
      {"program events: 10, with their lists", listFloors},
      {"descriptors: 20 of 64 bytes", listFloors},
      {"descriptors: 200 of 1 bytes", listFloors},
      {"descriptors: 20000 of 1 bytes", listFloors},
      {"notification, one way", {theFloor}},
      {"client library: notification, one way", {theFloor}},
      {"request and notification at once", {theFloor}},
      {"section: 0 bytes", {theFloor}},
      {"section: 16 bytes", {theFloor}},
      {"section: 1024 bytes", {theFloor}},
      {"section: 4096 bytes", {theFloor}},
      {"filter set, then a section of 0 bytes", {theFloor}},
      {"connect, ask, disconnect", {theFloor}},
      {"adapter: made", {theFloor}},
      {"adapter: deleted", {theFloor}},
  };
  return all;
}

TEST(Bench, MeasuresEveryRowInBothPlacementsAndWritesItsFigures) {
  const std::string file = "/dev/shm/bench.json";
  Program bench({BENCH, "--effort", "0.01", "--json", file});
  ASSERT_EQ(bench.wait(), 0) << bench.output();
  std::ifstream stream(file);
  const nlohmann::json figures = nlohmann::json::parse(stream);
  EXPECT_TRUE(figures["quiet"].is_boolean());
  EXPECT_EQ(figures["rows"].size(), rows().size());
  for (const auto& [row, floors] : rows()) {
    SCOPED_TRACE(row);
    ASSERT_TRUE(figures["rows"].contains(row));
    const bool hasOnePlacement = row.starts_with("adapter");
    EXPECT_EQ(figures["rows"][row].size(), hasOnePlacement ? 1U : 2U);
    for (const auto& [placement, values] : figures["rows"][row].items()) {
      EXPECT_TRUE(placement == "one" || placement == "two");
      EXPECT_GT(values["median_us"], 0.0);
      EXPECT_GE(values["p99_us"], values["median_us"]);
      EXPECT_EQ(values["ratios"].size(), floors.size());
      for (const std::string& floor : floors) {
        ASSERT_TRUE(values["ratios"].contains(floor)) << floor;
        const nlohmann::json& ratio = values["ratios"][floor];
        EXPECT_GT(ratio["lower"], 0.0);
        EXPECT_GE(ratio["median"], ratio["lower"]);
        EXPECT_GE(ratio["upper"], ratio["median"]);
      }
    }
  }
  EXPECT_EQ(figures["sizes"].size(), 4U);
  for (const auto& [name, bytes] : figures["sizes"].items()) EXPECT_GT(bytes, 0) << name;
  // Resident is also what the kernel maps along of files that it holds; written is the process's
  // own.
  EXPECT_LT(figures["sizes"]["resident memory of a process, more with the adapter"], 2 << 20);
  EXPECT_LT(figures["sizes"]["of that, written to"], 256 << 10);
  // The pieces of a list lie on it.
  EXPECT_LT(figures["sizes"]["stack used by ipc-control"], 64 << 10);
  EXPECT_LT(figures["sizes"]["stack used by ipc-demux"], 64 << 10);
}

TEST(Bench, SaysWhatIsWrongWithItsArguments) {
  Program unwritable({BENCH, "--only", "services: 0", "--effort", "0.001", "--json", "/nowhere/x"});
  EXPECT_EQ(unwritable.wait(), 1);
  EXPECT_NE(unwritable.errors().find("/nowhere/x: cannot be written"), std::string::npos);
  Program unknown({BENCH, "--nothing"});
  EXPECT_NE(unknown.wait(), 0);
}

}  // namespace
