// The properties, and carousels as directories.

#include "receiver/facades/Properties.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace receiver {
namespace {

class PropertyFile : public testing::Test {
 protected:
  static constexpr const char* path = "/dev/shm/properties.db";

  ~PropertyFile() override {
    std::filesystem::remove(path);
    std::filesystem::remove(std::string(path) + "-journal");
  }

  static std::string text(Properties& properties) {
    std::string all;
    for (const auto& [name, value] : properties.getProperties()) all += name + "=" + value + ";";
    return all;
  }
};

TEST_F(PropertyFile, KeepsWhatIsSetUntilItIsRemoved) {
  {
    Properties properties(path, {});
    EXPECT_EQ(text(properties), "");
    EXPECT_EQ(properties.getProperty("b"), "");
    properties.setProperty("b", "two");
    properties.setProperty("a", "");
    properties.setProperty("b", "drei");
    properties.setProperty("c'; DROP TABLE properties", "\"\\\xff");
    EXPECT_EQ(properties.getProperty("b"), "drei");
  }
  Properties properties(path, {});
  EXPECT_EQ(text(properties), "a=;b=drei;c'; DROP TABLE properties=\"\\\xff;");
  properties.removeProperty("b");
  properties.removeProperty("b");
  properties.removeProperty("c'; DROP TABLE properties");
  EXPECT_EQ(text(properties), "a=;");
}

TEST_F(PropertyFile, WhatTheReceiverAnswersForIsReadOnly) {
  int calls = 0;
  Properties properties(path, {{"time", [&] { return std::to_string(++calls); }}});
  properties.setProperty("time", "x");
  EXPECT_EQ(properties.getProperty("time"), "1");
  properties.removeProperty("time");
  properties.setProperty("z", "last");
  EXPECT_EQ(text(properties), "time=2;z=last;");
}

TEST_F(PropertyFile, LongTextsAreCutAsOnTheirWay) {
  Properties properties(path, {});
  const std::string name(300, 'n');
  properties.setProperty(name, std::string(300, 'v'));
  EXPECT_EQ(properties.getProperty(name), std::string(254, 'v'));
  EXPECT_EQ(properties.getProperties().front().name, std::string(254, 'n'));
}

constexpr const char* leftOut =
    "quillwork-receiver: the properties would be more than 1000 or take more than 256 KiB;"
    " what is too much is left out\n";

/// Sets as many short properties, "p0" and so on, as there may be.
void fill(Properties& properties) {
  for (int number = 0; number < 1000; ++number) {
    properties.setProperty("p" + std::to_string(number), "v");
  }
}

TEST_F(PropertyFile, ANewNameIsLeftOutWhereThereAreTooMany) {
  Properties properties(path, {{"time", [] { return "now"; }}});
  testing::internal::CaptureStderr();
  fill(properties);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  properties.setProperty("q", "v");
  properties.setProperty("r", "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), leftOut) << "it is said once";
  EXPECT_EQ(properties.getProperties().size(), 1001U) << "with the one that is read only";
  EXPECT_EQ(properties.getProperty("q"), "");
  properties.setProperty("p7", "another");
  EXPECT_EQ(properties.getProperty("p7"), "another");
  properties.removeProperty("p0");
  properties.setProperty("q", "v");
  EXPECT_EQ(properties.getProperty("q"), "v");
}

TEST_F(PropertyFile, AValueIsLeftOutWhereTheyTakeTooManyBytes) {
  Properties properties(path, {});
  const auto name = [](int number) {
    return std::string(250, 'n') + std::to_string(1000 + number);
  };
  const std::string value(254, 'v');
  testing::internal::CaptureStderr();
  for (int number = 0; number < 516; ++number) properties.setProperty(name(number), value);
  // 516 times 508 are 262,128 bytes, 16 less than there may be.
  properties.setProperty("sixteen", "123456789");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  properties.setProperty("sixteen", "1234567890");
  properties.setProperty("b", "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), leftOut);
  EXPECT_EQ(properties.getProperty("sixteen"), "123456789");
  EXPECT_EQ(properties.getProperties().size(), 517U);
  properties.setProperty(name(3), "short");
  EXPECT_EQ(properties.getProperty(name(3)), "short");
  properties.setProperty("sixteen", "1234567890");
  EXPECT_EQ(properties.getProperty("sixteen"), "1234567890");
}

TEST_F(PropertyFile, WhatIsInTheFileCounts) {
  {
    Properties properties(path, {});
    fill(properties);
  }
  Properties properties(path, {});
  testing::internal::CaptureStderr();
  properties.setProperty("q", "v");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), leftOut);
  EXPECT_EQ(properties.getProperty("q"), "");
  EXPECT_EQ(properties.getProperty("p999"), "v");
}

TEST_F(PropertyFile, AFileWithTooManyIsReadAndShrinks) {
  { const Properties made(path, {}); }
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(path, &database), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(database,
                   "WITH RECURSIVE numbers(n) AS"
                   " (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < 1100)"
                   " INSERT INTO properties SELECT CAST('f' || n AS BLOB), X'313233' FROM numbers",
                   nullptr, nullptr, nullptr),
      SQLITE_OK);
  ASSERT_EQ(sqlite3_close(database), SQLITE_OK);
  Properties properties(path, {});
  EXPECT_EQ(properties.getProperties().size(), 1100U);
  testing::internal::CaptureStderr();
  properties.setProperty("f1", "1234");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), leftOut);
  EXPECT_EQ(properties.getProperty("f1"), "123");
  properties.setProperty("f1", "456");
  EXPECT_EQ(properties.getProperty("f1"), "456");
}

TEST_F(PropertyFile, SurvivesAKillInTheMiddleOfAChange) {
  for (int round = 0; round < 5; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      Properties properties(path, {});
      for (std::uint32_t number = 0;; ++number) {
        properties.setProperty("number", std::to_string(number));
        if (write(ends[1], &number, sizeof number) == -1) _exit(1);
      }
    }
    close(ends[1]);
    std::uint32_t answered = 0;
    while (answered < 20 && read(ends[0], &answered, sizeof answered) > 0) {
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    // What had been answered by then, though it was not read here.
    while (read(ends[0], &answered, sizeof answered) > 0) {
    }
    close(ends[0]);
    Properties properties(path, {});
    EXPECT_GE(std::stoul(properties.getProperty("number")), answered);
    properties.setProperty("number", "0");
  }
}

TEST_F(PropertyFile, WhatIsWrongWithTheFileIsSaidInOneLine) {
  const auto complaint = [](const std::string& name) -> std::string {
    try {
      Properties(name, {});
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(complaint("/nowhere/p.db"), "/nowhere/p.db: unable to open database file");
  std::ofstream(path) << std::string(5000, 'x');
  EXPECT_EQ(complaint(path), std::string(path) + ": file is not a database");
}

}  // namespace
}  // namespace receiver
