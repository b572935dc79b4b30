// The files of tests/golden that are no requests of the control channel: what the library sends on
// its own, byte by byte on the real socket.

#include <gtest/gtest.h>

#include <future>

#include "protocol/IpcServerManager.h"
#include "support/ApplicationStateWait.h"
#include "support/Golden.h"
#include "support/GoldenNotification.h"
#include "support/Manager.h"
#include "support/RawClient.h"

namespace quillwork {
namespace {

class GoldenNotification : public testing::TestWithParam<Golden> {
 protected:
  ~GoldenNotification() override { IpcServerManager::destroy(); }

  IpcServerManager* manager = makeManager();
};

TEST_P(GoldenNotification, ReachesTheClientByteByByte) {
  const Golden& golden = GetParam();
  ASSERT_EQ(golden.calls.size(), 1U);
  const Golden::Call& call = golden.calls.front();
  const RawClient client;
  // An answer says that the server has accepted the client.
  static_cast<void>(client.ask(request(VERSION, 1)));
  auto result = std::async(std::launch::async, [&] { return notify(*manager, call); });
  bool expected = true;
  for (const Golden::Part& part : golden.parts) {
    if (part.fromClient) {
      awaitApplicationStateWait();
      client.send(part.bytes);
      expected = call.result("answer").integer() != 0;
    } else {
      EXPECT_EQ(differences(part, client.receive(part.bytes.size()), sizeof(void*) > 4), "");
    }
  }
  EXPECT_EQ(result.get(), expected);
  // Nothing came behind it.
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
}

INSTANTIATE_TEST_SUITE_P(Files, GoldenNotification,
                         testing::ValuesIn(Golden::readAll(GOLDEN_DIRECTORY "/notifications")),
                         [](const auto& row) { return testName(row.param); });

}  // namespace
}  // namespace quillwork
