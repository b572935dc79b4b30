// What the client library costs in calls of the system: a request one to send and one to receive,
// whatever the time limit.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "client/ControlChannel.h"
#include "protocol/message.h"
#include "support/Asleep.h"
#include "support/Patience.h"
#include "support/RawClient.h"
#include "support/UnixSocket.h"

// The linker gives the client library the __wrap_ functions below.
extern "C" {
ssize_t __real_send(int socket, const void* data, size_t size, int flags);
ssize_t __real_recv(int socket, void* data, size_t size, int flags);
int __real_poll(pollfd* files, nfds_t count, int time);
int __real_setsockopt(int socket, int level, int name, const void* value, socklen_t size);
}

namespace {

/// The calls of the thread since it last looked, in their order.
thread_local std::string calls;

std::string takeCalls() { return std::exchange(calls, {}); }

}  // namespace

extern "C" {
ssize_t __wrap_send(int socket, const void* data, size_t size, int flags) {
  calls += "send ";
  return __real_send(socket, data, size, flags);
}
ssize_t __wrap_recv(int socket, void* data, size_t size, int flags) {
  calls += "recv ";
  return __real_recv(socket, data, size, flags);
}
int __wrap_poll(pollfd* files, nfds_t count, int time) {
  calls += "poll ";
  return __real_poll(files, count, time);
}
int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t size) {
  calls += "setsockopt ";
  return __real_setsockopt(socket, level, name, value, size);
}
}

namespace {

using quillwork::client::ControlChannel;

constexpr const char* path = "/dev/shm/calls.socket";

class ChannelCalls : public testing::Test {
 protected:
  ChannelCalls() {
    listenAt(listening_, path);
    channel = std::make_unique<ControlChannel>(path, patience);
    server = accept(listening_, nullptr, nullptr);
  }
  ~ChannelCalls() override {
    channel.reset();
    close(server);
    close(listening_);
  }

  /// Waits for the request, then until the calling thread waits for the answer, which it sends in
  /// pieces.
  std::thread answer(const std::string& reply, std::size_t piece) const {
    return std::thread([this, reply, piece, asking = gettid()] {
      quillwork::message asked;
      recv(server, &asked, sizeof asked, MSG_WAITALL);
      awaitAsleepTogether({asking});
      for (std::size_t begin = 0; begin < reply.size(); begin += piece) {
        const std::string part = reply.substr(begin, piece);
        send(server, part.data(), part.size(), 0);
      }
    });
  }

  int server = -1;
  std::unique_ptr<ControlChannel> channel;

 private:
  int listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(ChannelCalls, AQueryIsASendAndAReceive) {
  const std::string reply = bytesOf(request(quillwork::SI, 7));
  for (int round = 0; round < 3; ++round) {
    takeCalls();
    std::thread thread = answer(reply, reply.size());
    channel->getCurrentService();
    // The first one gives the socket its time limit.
    EXPECT_EQ(takeCalls(), round == 0 ? "send recv setsockopt recv " : "send recv ");
    thread.join();
  }
}

TEST_F(ChannelCalls, AListIsReceivedInLargePiecesHoweverItIsSent) {
  constexpr int count = 100;
  std::string reply = bytesOf(request(quillwork::LIST_HEADER, count));
  for (int index = 0; index < count; ++index) reply += bytesOf(request(quillwork::SI, 6));
  for (const std::size_t piece : {1960U, 16U * 1960U, 777U}) {
    std::thread thread = answer(reply, piece);
    EXPECT_EQ(channel->getServices().size(), 100U);
    thread.join();
    const std::string seen = takeCalls();
    // The header, the first element, which tells a list from a command, and then 64 KiB each; the
    // first time, the socket is given its time limit as well.
    std::size_t receives = 0;
    for (std::size_t at = 0; (at = seen.find("recv", at)) != seen.npos; ++at) ++receives;
    EXPECT_LE(receives, 6U) << seen;
    EXPECT_EQ(seen.find("poll"), seen.npos) << seen;
  }
}

TEST_F(ChannelCalls, ANotificationThatIsThereOrComesInTimeIsOneReceive) {
  const std::string notification = bytesOf(request(quillwork::MEDIA, 16));
  const auto notify = [&] { send(server, notification.data(), notification.size(), 0); };
  const pid_t waiting = gettid();
  for (int round = 0; round < 3; ++round) {
    takeCalls();
    std::thread late([&] {
      awaitAsleepTogether({waiting});
      notify();
    });
    EXPECT_TRUE(channel->waitForNotification(patience));
    EXPECT_EQ(takeCalls(), round == 0 ? "recv setsockopt recv " : "recv ");
    late.join();
  }
  notify();
  takeCalls();
  // Whatever the time is.
  EXPECT_TRUE(channel->waitForNotification(std::chrono::seconds(1)));
  EXPECT_EQ(takeCalls(), "recv ");
  EXPECT_FALSE(channel->waitForNotification({}));
  EXPECT_EQ(takeCalls(), "recv ");
}

TEST_F(ChannelCalls, AWaitThatIsInVainEndsInTimeAndTheNextOneWaitsAgain) {
  const std::string notification = bytesOf(request(quillwork::MEDIA, 16));
  for (int round = 0; round < 3; ++round) {
    EXPECT_FALSE(channel->waitForNotification(std::chrono::milliseconds(20)));
    std::thread thread([&] { send(server, notification.data(), notification.size(), 0); });
    EXPECT_TRUE(channel->waitForNotification(patience));
    thread.join();
  }
}

}  // namespace
