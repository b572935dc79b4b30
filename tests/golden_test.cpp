// The files of tests/golden that are no requests of the control channel: what the library sends on
// its own, and the section-filter channel, byte by byte on the real sockets.

#include <gtest/gtest.h>

#include <future>

#include "ipc/IpcDemuxServer.h"
#include "protocol/IpcServerManager.h"
#include "support/ApplicationStateWait.h"
#include "support/DemuxRecorder.h"
#include "support/Golden.h"
#include "support/GoldenNotification.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"

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

class GoldenSectionFilter : public testing::TestWithParam<Golden> {
 protected:
  void SetUp() override {
    server.setListener(&recorder);
    server.start();
  }
  void TearDown() override { server.stop(); }

  DemuxRecorder recorder;
  IpcDemuxServer server;
};

TEST_P(GoldenSectionFilter, CallsTheListenerAndIsAnsweredByteByByte) {
  const Golden& golden = GetParam();
  for (const Golden::Call& call : golden.calls) {
    if (call.operation != "read_section") continue;
    const std::string section = call.result("section").bytes();
    recorder.section = [section] { return DemuxRecorder::Bytes(section.begin(), section.end()); };
  }
  // A vector that is too long is reported; ipc_demux_server_test.cpp has the line.
  const CaughtStream errors(stderr);
  const RawClient client(RawClient::sectionFilter);
  for (const Golden::Part& part : golden.parts) {
    if (part.fromClient) {
      client.send(part.bytes);
    } else {
      EXPECT_EQ(differences(part, client.receive(part.bytes.size()), sizeof(void*) > 4), "");
    }
  }
  client.closeSending();
  // The server ends the connection when it has handled all of it, and has sent nothing more.
  EXPECT_TRUE(client.isAtEnd());
  EXPECT_EQ(recorder.log.take(), golden.callTexts());
}

INSTANTIATE_TEST_SUITE_P(Files, GoldenSectionFilter,
                         testing::ValuesIn(Golden::readAll(GOLDEN_DIRECTORY "/section-filter")),
                         [](const auto& row) { return testName(row.param); });

}  // namespace
}  // namespace quillwork
