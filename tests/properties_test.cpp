// The properties, and carousels as directories.

#include "receiver/facades/Properties.h"

#include <gtest/gtest.h>
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
