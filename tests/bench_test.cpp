// The benchmark checks every answer that it gets; here it has few samples and no time to keep.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "support/Program.h"

namespace {

TEST(Bench, MeasuresEveryRowAndWritesItsFigures) {
  const std::string file = "/dev/shm/bench.json";
  Program bench({BENCH, "--effort", "0.01", "--json", file});
  ASSERT_EQ(bench.wait(), 0) << bench.output();
  std::ifstream stream(file);
  const nlohmann::json figures = nlohmann::json::parse(stream);
  for (const char* const row : {"round trip: integer",
                                "round trip: text",
                                "round trip: media bounds",
                                "services: 0",
                                "services: 1",
                                "services: 10",
                                "services: 200",
                                "services: 2000",
                                "program events: 10, with their lists",
                                "descriptors: 20 of 64 bytes",
                                "descriptors: 200 of 1 bytes",
                                "descriptors: 20000 of 1 bytes",
                                "notification, one way",
                                "request and notification at once",
                                "section: 0 bytes",
                                "section: 16 bytes",
                                "section: 1024 bytes",
                                "section: 4096 bytes",
                                "filter set, then a section of 0 bytes",
                                "integer, asked of 1 listeners",
                                "integer, asked of 4 listeners",
                                "integer, asked of 16 listeners",
                                "connect, ask, disconnect",
                                "adapter: made",
                                "adapter: deleted",
                                "client library: 200 services, over the bare client"}) {
    SCOPED_TRACE(row);
    ASSERT_TRUE(figures["rows"].contains(row));
    const nlohmann::json& values = figures["rows"][row];
    EXPECT_GT(values["floor_median_us"], 0.0);
    EXPECT_GT(values["median_us"], 0.0);
    EXPECT_GE(values["p99_us"], values["median_us"]);
    EXPECT_NEAR(values["ratio"].get<double>(),
                values["median_us"].get<double>() / values["floor_median_us"].get<double>(), 1e-9);
  }
  EXPECT_EQ(figures["rows"].size(), 26U);
  for (const auto& [name, bytes] : figures["sizes"].items()) {
    EXPECT_GT(bytes, 0) << name;
    EXPECT_LT(bytes, 1 << 20) << name;
  }
  EXPECT_EQ(figures["sizes"].size(), 4U);
}

TEST(Bench, SaysWhatIsWrongWithItsArguments) {
  Program unwritable({BENCH, "--only", "services: 0", "--effort", "0.001", "--json", "/nowhere/x"});
  EXPECT_EQ(unwritable.wait(), 1);
  EXPECT_NE(unwritable.errors().find("/nowhere/x: cannot be written"), std::string::npos);
  Program unknown({BENCH, "--nothing"});
  EXPECT_NE(unknown.wait(), 0);
}

}  // namespace
