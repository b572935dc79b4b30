// A host that is stopped and continued in the middle of a receive, by a debugger or a shell: the
// receive comes back with what has arrived so far, and the rest is still to come.

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/message.h"
#include "support/CallLog.h"
#include "support/RawClient.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

constexpr std::size_t size = sizeof(message);

/// Tells the test's process what happens in the host's.
class Reporter {
 public:
  explicit Reporter(int pipe) : pipe_(pipe) {}
  void report(const std::string& text) const {
    // At most PIPE_BUF bytes: they arrive whole.
    const std::string frame = word(static_cast<std::int32_t>(text.size())) + text;
    if (write(pipe_, frame.data(), frame.size()) < 0) _exit(1);
  }

 private:
  int pipe_;
};

/// A host in a process of its own. Begun while the test has one thread.
class HostProcess {
 public:
  /// `serve` starts a server and returns what keeps it alive.
  explicit HostProcess(const std::function<std::shared_ptr<void>(const Reporter&)>& serve) {
    int reports[2];
    int life[2];
    EXPECT_EQ(pipe(reports), 0);
    EXPECT_EQ(pipe(life), 0);
    process_ = fork();
    if (process_ == 0) {
      close(reports[0]);
      close(life[1]);
      const Reporter reporter(reports[1]);
      const auto server = serve(reporter);
      reporter.report("ready");
      // The test's process lets it go, or has ended.
      char byte = 0;
      static_cast<void>(!read(life[0], &byte, 1));
      _exit(0);
    }
    close(reports[1]);
    close(life[0]);
    reports_ = reports[0];
    life_ = life[1];
    EXPECT_EQ(next(), "ready");
  }
  ~HostProcess() {
    close(life_);
    close(reports_);
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  /// The next thing that has happened in it.
  [[nodiscard]] std::string next() const {
    std::int32_t length = 0;
    if (!readWhole(&length, sizeof length)) return "nothing within twenty seconds";
    std::string text(static_cast<std::size_t>(length), '\0');
    if (!readWhole(text.data(), text.size())) return "half a report";
    return text;
  }

  void stopAndContinue() const {
    int status = 0;
    kill(process_, SIGSTOP);
    ASSERT_EQ(waitpid(process_, &status, WUNTRACED), process_);
    ASSERT_TRUE(WIFSTOPPED(status));
    kill(process_, SIGCONT);
  }

 private:
  bool readWhole(void* data, std::size_t length) const {
    auto* place = static_cast<char*>(data);
    while (length > 0) {
      pollfd ready{reports_, POLLIN, 0};
      if (poll(&ready, 1, 20'000) != 1) return false;
      const ssize_t got = read(reports_, place, length);
      if (got <= 0) return false;
      place += got;
      length -= static_cast<std::size_t>(got);
    }
    return true;
  }

  pid_t process_ = -1;
  int reports_ = -1;
  int life_ = -1;
};

/// Returns when the peer's receive has taken everything that was sent.
void awaitTaken(const RawClient& client) {
  for (int unread = 1; unread != 0; std::this_thread::yield()) {
    ASSERT_EQ(ioctl(client.descriptor(), SIOCOUTQ, &unread), 0);
  }
}

/// Sends the bytes in pieces, the host being stopped in the middle of its receive between them.
void sendInPieces(const HostProcess& host, const RawClient& client, std::string_view bytes,
                  const std::vector<std::size_t>& cuts) {
  std::size_t sent = 0;
  for (const std::size_t cut : cuts) {
    client.send(bytes.substr(sent, cut - sent));
    sent = cut;
    awaitTaken(client);
    host.stopAndContinue();
  }
  client.send(bytes.substr(sent));
}

constexpr const char* path = "/dev/shm/stopped.socket";
constexpr int pathLength = 23;

class Records : public IpcListener {
 public:
  explicit Records(const Reporter& reporter) : reporter_(reporter) {}
  void update(message& record) override { reporter_.report(bytesOf(record)); }
  void update(std::list<message>) override {}
  void clientConnected() override { reporter_.report("connected"); }
  void clientDisconnected() override { reporter_.report("disconnected"); }

 private:
  const Reporter reporter_;
};

struct ControlHost {
  explicit ControlHost(const Reporter& reporter) : records(reporter) { server.start(); }
  Records records;
  IpcServer server{&records, path, pathLength};
};

class StoppedControlHost : public testing::Test {
 protected:
  StoppedControlHost() {
    for (std::size_t index = 0; index < size; ++index) {
      record[index] = static_cast<char>(1 + index % 251);
    }
    client = std::make_unique<RawClient>(path);
    EXPECT_EQ(host.next(), "connected");
  }

  std::string record = std::string(size, '\0');
  // Behind it the process has more than one thread.
  const HostProcess host{
      [](const Reporter& reporter) { return std::make_shared<ControlHost>(reporter); }};
  const Watchdog watchdog{std::chrono::seconds(60)};
  std::unique_ptr<RawClient> client;
};

TEST_F(StoppedControlHost, GetsARecordWhole) {
  sendInPieces(host, *client, record, {1000});
  EXPECT_EQ(host.next(), record);
  // And stays in step.
  client->send(request(SI, 6));
  EXPECT_EQ(host.next(), bytesOf(request(SI, 6)));
}

TEST_F(StoppedControlHost, GetsARecordWholeThatIsCutAgainAndAgain) {
  sendInPieces(host, *client, record, {1, 2, 979, 980, 1958, 1959});
  EXPECT_EQ(host.next(), record);
  sendInPieces(host, *client, record, {1000});
  EXPECT_EQ(host.next(), record);
}

TEST_F(StoppedControlHost, GetsTheFrontOfARecordOnceWhenTheClientLeaves) {
  sendInPieces(host, *client, std::string_view(record).substr(0, 1000), {600});
  client->close();
  EXPECT_EQ(host.next(), record.substr(0, 1000) + std::string(size - 1000, '\0'));
  std::string end = record.substr(0, 1000) + std::string(size - 1000, '\0');
  end.replace(0, 4, word(0));
  end.replace(8, 4, word(2));
  EXPECT_EQ(host.next(), end);
  EXPECT_EQ(host.next(), "disconnected");
}

TEST_F(StoppedControlHost, KeepsAClientThatHasSentNothing) {
  host.stopAndContinue();
  client->send(record);
  EXPECT_EQ(host.next(), record);
}

/// Reports the section-filter channel's calls.
class Filters : public IpcDemuxServerListener {
 public:
  using Bytes = std::vector<unsigned char>;
  explicit Filters(const Reporter& reporter) : reporter_(reporter) {}
  void start() override { reporter_.report("start"); }
  void stop() override { reporter_.report("stop"); }
  void set_pid(int pid) override { reporter_.report("pid " + std::to_string(pid)); }
  void set_table_id(int) override {}
  void set_positive_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    reporter_.report(std::to_string(filterArg) + hex(first) + hex(second));
  }
  void set_greater_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_less_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_xor_filter(int, const Bytes&, const Bytes&, const Bytes&) override {}
  void set_time_out(long timeOut) override {
    reporter_.report("time-out " + std::to_string(timeOut));
  }
  void clear_table_id() override { reporter_.report("clear"); }
  void clear_positive_filter() override {}
  void clear_less_than_filter() override { reporter_.report("clear less"); }
  void clear_xor_filter() override {}
  Bytes read_section() override { return {'a', 'b'}; }

 private:
  const Reporter reporter_;
};

struct SectionFilterHost {
  explicit SectionFilterHost(const Reporter& reporter) : filters(reporter) {
    server.setListener(&filters);
    server.start();
  }
  Filters filters;
  IpcDemuxServer server;
};

class StoppedSectionFilterHost : public testing::Test {
 protected:
  /// The client leaves, and its request was the last thing that was heard of it.
  void expectNothingMore() {
    client.close();
    const RawClient next(RawClient::sectionFilter);
    next.send(word(9));
    EXPECT_EQ(host.next(), "clear");
  }

  const HostProcess host{
      [](const Reporter& reporter) { return std::make_shared<SectionFilterHost>(reporter); }};
  const Watchdog watchdog{std::chrono::seconds(60)};
  RawClient client{RawClient::sectionFilter};
};

const std::string filterRequest = word(4) + word(0x01020304) + word(3) + "abc" + word(2) + "de";

class CutRequest : public StoppedSectionFilterHost,
                   public testing::WithParamInterface<std::size_t> {};

TEST_P(CutRequest, ArrivesWhole) {
  sendInPieces(host, client, filterRequest, {GetParam()});
  EXPECT_EQ(host.next(), "16909060{61 62 63}{64 65}");
  // And stays in step.
  client.send(word(9) + word(13));
  EXPECT_EQ(host.next(), "clear");
  EXPECT_EQ(client.receive(6), word(2) + "ab");
}

// In the code, the integer, either count and either vector.
INSTANTIATE_TEST_SUITE_P(BehindByte, CutRequest, testing::Values(1, 2, 3, 6, 9, 11, 13, 16, 17, 20),
                         testing::PrintToStringParamName());

TEST_F(StoppedSectionFilterHost, GetsARequestWholeThatIsCutAgainAndAgain) {
  std::vector<std::size_t> cuts;
  for (std::size_t cut = 1; cut < filterRequest.size(); ++cut) cuts.push_back(cut);
  sendInPieces(host, client, filterRequest, cuts);
  EXPECT_EQ(host.next(), "16909060{61 62 63}{64 65}");
}

TEST_F(StoppedSectionFilterHost, GetsTheFrontOfACodeWhenTheClientLeaves) {
  // The first two bytes of the code 11 over the code 9.
  sendInPieces(host, client, word(9) + word(11).substr(0, 2), {5});
  client.close();
  EXPECT_EQ(host.next(), "clear");
  EXPECT_EQ(host.next(), "clear less");
  expectNothingMore();
}

TEST_F(StoppedSectionFilterHost, KeepsTheValueOfAnIntegerThatTheClientDoesNotFinish) {
  sendInPieces(host, client, word(2) + word(17).substr(0, 3), {5});
  client.close();
  EXPECT_EQ(host.next(), "pid -1");
  expectNothingMore();
}

TEST_F(StoppedSectionFilterHost, KeepsAClientThatHasSentNothing) {
  host.stopAndContinue();
  client.send(word(9));
  EXPECT_EQ(host.next(), "clear");
}

}  // namespace
}  // namespace quillwork
