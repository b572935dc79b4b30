#include "support/TestLimit.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/Stacks.h"

namespace {

constexpr unsigned limitSeconds = 20 * 60;

void endTheTest(int) {
  const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
  if (test != nullptr) {
    std::fprintf(stderr, "%s.%s is not done\n", test->test_suite_name(), test->name());
  }
  printStacks();
  std::abort();
}

class LimitEachTest : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { alarm(limitSeconds); }
  void OnTestEnd(const testing::TestInfo&) override { alarm(0); }
};

}  // namespace

void limitTests() {
  std::signal(SIGALRM, endTheTest);
  // GoogleTest deletes it.
  testing::UnitTest::GetInstance()->listeners().Append(new LimitEachTest);
}
