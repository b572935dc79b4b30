// The runner itself: a test that leaves something behind has failed, whatever it has checked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "support/Program.h"

namespace {

using testing::HasSubstr;

/// One of the tests of support/leaking.cpp, and what must be said of it.
struct Leak {
  const char* test;
  int status;
  const char* text;
};

void PrintTo(const Leak& leak, std::ostream* stream) { *stream << leak.test; }

class Leftover : public testing::TestWithParam<Leak> {};

TEST_P(Leftover, IsAFailureUnlessItWasSaid) {
  const auto& [test, status, text] = GetParam();
  Program program({LEAKING, std::string("--gtest_filter=Leaking.") + test});
  EXPECT_EQ(program.wait(), status);
  EXPECT_THAT(program.output(), HasSubstr(text));
}

INSTANTIATE_TEST_SUITE_P(
    Tests, Leftover,
    testing::Values(Leak{"ADescriptor", 1,
                         "leaves 1 descriptors, where 0 are expected: /dev/null\n"},
                    Leak{"AThread", 1, "and 1 threads, where 0 are expected: \"left-behind\"\n"},
                    Leak{"LessThanItHasSaid", 1, "and 0 threads, where 1 are expected:\n"},
                    Leak{"AsItHasSaid", 0, "[  PASSED  ] 1 test."},
                    Leak{"NothingInTheEnd", 0, "[  PASSED  ] 1 test."}),
    [](const auto& leak) { return std::string(leak.param.test); });

TEST(TestLimit, EndsATestThatHangsWithTheStacksOfItsThreads) {
  Program program({LEAKING, "--gtest_filter=Hanging.*", "--gtest_also_run_disabled_tests"});
  EXPECT_EQ(program.wait(), 128 + SIGABRT);
  EXPECT_THAT(program.errors(), HasSubstr("Hanging.DISABLED_ForEver is not done"));
  EXPECT_THAT(program.errors(), HasSubstr("hread"));
}

}  // namespace
