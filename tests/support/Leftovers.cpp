#include "support/Leftovers.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/Patience.h"

namespace {

using Names = std::vector<std::string>;

Leftovers expectedLeftovers;
std::chrono::milliseconds timeForLeftovers = patience;

/// What the open descriptors refer to, sorted; by a file's name only, for a number that is closed
/// and opened again may belong to something else.
Names openFiles() {
  const std::string listing = "/proc/" + std::to_string(getpid()) + "/fd";
  Names targets;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone);
    // The listing has a descriptor of its own.
    if (!gone && target != listing) targets.push_back(target);
  }
  std::sort(targets.begin(), targets.end());
  return targets;
}

Names threads() {
  Names numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    numbers.push_back(entry.path().filename());
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::string threadName(const std::string& number) {
  std::string name;
  std::getline(std::ifstream("/proc/self/task/" + number + "/comm"), name);
  return '"' + name + '"';
}

Names added(const Names& before, const Names& now) {
  Names more;
  std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                      std::back_inserter(more));
  return more;
}

std::string list(const Names& names) {
  std::ostringstream text;
  for (const std::string& name : names) text << ' ' << name;
  return text.str();
}

/// Compares what there is at the end of a test with what there was at its beginning.
class LeftoverWatch : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    expectedLeftovers = {};
    timeForLeftovers = patience;
    filesBefore_ = openFiles();
    threadsBefore_ = threads();
  }

  void OnTestEnd(const testing::TestInfo&) override {
    // Nothing signals the end of a thread, or that a server has closed what its client left. A
    // server first works through the requests that its client left in the socket.
    for (std::chrono::milliseconds waited{}; waited < timeForLeftovers && !isAsExpected();
         waited += pause) {
      std::this_thread::sleep_for(pause);
    }
    const Names files = added(filesBefore_, openFiles());
    const Names numbers = added(threadsBefore_, threads());
    if (isExpected(files, expectedLeftovers.descriptors) &&
        isExpected(numbers, expectedLeftovers.threads)) {
      return;
    }
    Names names;
    std::transform(numbers.begin(), numbers.end(), std::back_inserter(names), threadName);
    ADD_FAILURE() << "The test leaves " << files.size() << " descriptors, where "
                  << expectedLeftovers.descriptors << " are expected:" << list(files) << '\n'
                  << "and " << names.size() << " threads, where " << expectedLeftovers.threads
                  << " are expected:" << list(names);
  }

  static bool isExpected(const Names& names, int count) {
    return names.size() == static_cast<std::size_t>(count);
  }
  [[nodiscard]] bool isAsExpected() const {
    return isExpected(added(filesBefore_, openFiles()), expectedLeftovers.descriptors) &&
           isExpected(added(threadsBefore_, threads()), expectedLeftovers.threads);
  }

  static constexpr std::chrono::milliseconds pause{10};

  Names filesBefore_;
  Names threadsBefore_;
};

}  // namespace

void leavesBehind(Leftovers expected) {
  expectedLeftovers.descriptors += expected.descriptors;
  expectedLeftovers.threads += expected.threads;
}

void awaitsLeftovers(std::chrono::milliseconds time) { timeForLeftovers = time; }

void watchForLeftovers() {
  // With the first thread a sanitizer's runtime begins one of its own, which stays.
  std::thread([] {}).join();
  // GoogleTest deletes it.
  testing::UnitTest::GetInstance()->listeners().Append(new LeftoverWatch);
}
