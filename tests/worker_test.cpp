// The thread for what takes its time.

#include "receiver/Worker.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace receiver {
namespace {

TEST(Workers, ATaskThatThrowsEndsAlone) {
  testing::internal::CaptureStderr();
  std::promise<void> reached;
  {
    Worker worker;
    worker.post([] { throw std::runtime_error("no room"); });
    worker.post([&] { reached.set_value(); });
    reached.get_future().wait();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "quillwork-receiver: no room\n");
}

TEST(Workers, WhatIsTooMuchIsDroppedWithOneLine) {
  testing::internal::CaptureStderr();
  std::promise<void> begun;
  std::promise<void> released;
  std::promise<void> reached;
  std::size_t done = 0;
  {
    Worker worker;
    worker.post([&] {
      begun.set_value();
      released.get_future().wait();
    });
    begun.get_future().wait();
    for (std::size_t task = 0; task < Worker::mostTasks; ++task) {
      EXPECT_TRUE(worker.post([&] { ++done; }));
    }
    EXPECT_FALSE(worker.post([&] { ++done; }));
    EXPECT_FALSE(worker.post([&] { ++done; }));
    worker.postKept([&] { reached.set_value(); });
    released.set_value();
    reached.get_future().wait();
  }
  EXPECT_EQ(done, Worker::mostTasks);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "quillwork-receiver: the client does not read; notifications are dropped\n");
}

}  // namespace
}  // namespace receiver
