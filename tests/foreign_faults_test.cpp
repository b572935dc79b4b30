// Exceptions of the host's: of every type and of none, in every moment.

#include <gtest/gtest.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/CallLog.h"
#include "support/DemuxRecorder.h"
#include "support/FakeHost.h"
#include "support/Manager.h"
#include "support/OwnProcess.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

constexpr std::chrono::seconds hang{30};

/// Raised by another language's run-time system.
void raiseForeignException() {
  auto* const exception = new _Unwind_Exception{};
  std::memcpy(&exception->exception_class, "HOSTLANG", 8);
  exception->exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception* raised) {
    delete raised;
  };
  _Unwind_RaiseException(exception);
}

struct Fault {
  const char* name;
  void (*raise)();
};
void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
struct WithoutAText : std::exception {
  [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};
constexpr std::array<Fault, 4> faults{{
    {"OfAForeignLanguage", raiseForeignException},
    {"OfAnUnknownType", [] { throw 42; }},
    {"OfAStandardType", [] { throw std::runtime_error("the host's fault"); }},
    {"WithoutAText", [] { throw WithoutAText(); }},
}};

std::ptrdiff_t linesOf(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

/// So many lines, each of which says that an exception has ended a connection.
void expectLines(const std::string& printed, std::ptrdiff_t count) {
  const std::string beginning = "Client's connection ended by an exception";
  EXPECT_EQ(linesOf(printed), count) << printed;
  std::ptrdiff_t found = 0;
  for (std::size_t at = printed.find(beginning); at != std::string::npos;
       at = printed.find(beginning, at + 1)) {
    if (at == 0 || printed[at - 1] == '\n') ++found;
  }
  EXPECT_EQ(found, count) << printed;
}

/// The control channel's listener, which lets a fault escape from one event.
class Faulty : public IpcListener {
 public:
  void update(message& record) override {
    event(record.group == VIDEO && record.type == 2 ? "end" : "record");
  }
  void update(std::list<message>) override {}
  void clientConnected() override { event("connected"); }
  void clientDisconnected() override { event("disconnected"); }

  CallLog log;
  std::atomic<const char*> faultyEvent{""};
  void (*raise)() = nullptr;

 private:
  void event(const std::string& name) {
    // Whoever sees the last entry may change what is faulty.
    const bool isFaulty = name == faultyEvent.load();
    log.add(name);
    if (isFaulty) raise();
  }
};

class ControlFault : public testing::TestWithParam<std::tuple<Fault, const char*>> {};

TEST_P(ControlFault, EndsOneConnectionWithOneLine) {
  constexpr const char* path = "/dev/shm/faults.socket";
  const Watchdog watchdog{hang};
  Faulty listener;
  listener.raise = std::get<0>(GetParam()).raise;
  IpcServer server(&listener, path, 22);
  server.start();
  const std::string faulty = std::get<1>(GetParam());
  {
    const CaughtStream errors(stderr);
    listener.faultyEvent = std::get<1>(GetParam());
    RawClient client(path);
    if (faulty != "connected") client.send(request(SI, 6));
    if (faulty == "end" || faulty == "disconnected") {
      ASSERT_TRUE(listener.log.await("record()"));
      client.close();
    } else {
      EXPECT_TRUE(client.isAtEnd());
    }
    ASSERT_TRUE(listener.log.await("disconnected()"));
    // The next client's events come when this one's are over.
    listener.faultyEvent = "";
    const RawClient next(path);
    ASSERT_TRUE(listener.log.awaitCount(faulty == "connected" ? 4 : 5));
    expectLines(errors.text(), 1);
  }
  std::vector<std::string> expected{"connected()", "record()", "end()", "disconnected()"};
  if (faulty == "connected") expected.erase(expected.begin() + 1);
  auto calls = listener.log.take();
  calls.resize(expected.size());
  EXPECT_EQ(calls, expected);
  // The client after it is served.
  const RawClient served(path);
  served.send(request(SI, 6));
  EXPECT_TRUE(listener.log.await("record()"));
}

INSTANTIATE_TEST_SUITE_P(EachMoment, ControlFault,
                         testing::Combine(testing::ValuesIn(faults),
                                          testing::Values("connected", "record", "end",
                                                          "disconnected")),
                         [](const auto& fault) {
                           std::string moment = std::get<1>(fault.param);
                           moment.front() = static_cast<char>(moment.front() - 'a' + 'A');
                           return std::string(std::get<0>(fault.param).name) + "In" + moment;
                         });

class SectionFilterFault : public testing::TestWithParam<Fault> {
 protected:
  /// A listener without an operation that works.
  class Raising : public DemuxRecorder {
   public:
    void set_pid(int pid) override {
      log.add("set_pid", pid);
      raise();
    }
    void (*raise)() = nullptr;
  };

  SectionFilterFault() {
    listener.raise = GetParam().raise;
    listener.section = [this]() -> DemuxRecorder::Bytes {
      listener.raise();
      return {};
    };
    server.setListener(&listener);
    server.start();
  }
  ~SectionFilterFault() override { server.stop(); }

  void expectAnEnd(const std::string& bytes) {
    const CaughtStream errors(stderr);
    {
      const RawClient client(RawClient::sectionFilter);
      client.send(bytes);
      EXPECT_TRUE(client.isAtEnd());
    }
    const RawClient next(RawClient::sectionFilter);
    next.send(word(9));
    EXPECT_TRUE(listener.log.await("clear_table_id()"));
    expectLines(errors.text(), 1);
  }

  const Watchdog watchdog{hang};
  Raising listener;
  IpcDemuxServer server;
};

TEST_P(SectionFilterFault, EndsOneConnectionWithOneLine) { expectAnEnd(word(2) + word(17)); }

TEST_P(SectionFilterFault, WhileASectionIsReadEndsOneConnectionWithOneLine) {
  expectAnEnd(word(13));
}

TEST_P(SectionFilterFault, LeavesNothingThatAReleaseWouldWaitFor) {
  expectAnEnd(word(13));
  IpcDemuxServer::releaseListener(&listener);
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
}

INSTANTIATE_TEST_SUITE_P(EachType, SectionFilterFault, testing::ValuesIn(faults),
                         [](const auto& fault) { return std::string(fault.param.name); });

/// A section that never comes; what becomes of the call is seen by an object on its stack and by
/// a handler for everything that lets the unwinding pass.
class Unwound {
 public:
  DemuxRecorder::Bytes operator()() {
    struct Witness {
      explicit Witness(std::atomic<bool>& left) : isLeft(left) {}
      ~Witness() { isLeft = true; }
      std::atomic<bool>& isLeft;
    } const witness(isLeft);
    try {
      for (;;) pause();
    } catch (...) {
      isPassed = true;
      throw;
    }
    return {};
  }
  std::atomic<bool> isLeft{false};
  std::atomic<bool> isPassed{false};
};

class CancelledListener : public testing::Test {
 protected:
  CancelledListener() {
    recorder.section = [this] { return unwound(); };
    server.setListener(&recorder);
    server.start();
    client = std::make_unique<RawClient>(RawClient::sectionFilter);
    client->send(word(13));
    EXPECT_TRUE(recorder.log.await("read_section()"));
  }
  ~CancelledListener() override {
    EXPECT_TRUE(unwound.isLeft);
    EXPECT_TRUE(unwound.isPassed);
    EXPECT_EQ(errors.text(), "");
  }

  const Watchdog watchdog{hang};
  const CaughtStream errors{stderr};
  Unwound unwound;
  DemuxRecorder recorder;
  IpcDemuxServer server;
  std::unique_ptr<RawClient> client;
};

TEST_F(CancelledListener, IsUnwoundByAStopWithoutAWord) { server.stop(); }

TEST_F(CancelledListener, IsUnwoundByItsReleaseWithoutAWord) {
  IpcDemuxServer::releaseListener(&recorder);
  EXPECT_EQ(client->receive(4), word(0));
  server.stop();
}

/// Three listeners of each kind, in the order of their addresses.
class ManyListeners : public testing::Test {
 protected:
  class Departures : public ConnectionListener {
   public:
    void clientConnected() override {
      log.add("connected");
      if (throwsWhenConnected) throw std::runtime_error("connected");
    }
    void clientDisconnected() override {
      log.add("disconnected");
      if (!fault.empty()) throw std::runtime_error(fault);
    }
    CallLog log;
    bool throwsWhenConnected = false;
    std::string fault;
  };

  ManyListeners() {
    for (auto& each : departures) manager->addConnectionListener(&each);
    for (auto& each : listeners) manager->addIpcServerListener(&each);
  }
  ~ManyListeners() override { IpcServerManager::destroy(); }

  static std::function<void(const std::string&)> throwing(const std::string& text) {
    return [text](const std::string& operation) {
      if (operation == "setVideoProperty") throw std::runtime_error(text);
    };
  }

  void connectAndLeave() {
    RawClient client;
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    client.close();
    EXPECT_TRUE(departures[0].log.await("disconnected()"));
    expectTheNextClientIsServed();
  }

  /// It is served when everybody has been told of the one before, and stays: its own end would be
  /// counted, too.
  void expectTheNextClientIsServed() {
    next = std::make_unique<RawClient>();
    EXPECT_EQ(next->ask(request(VERSION, 1)).group, VERSION);
  }

  static std::ptrdiff_t count(const CallLog& log, const std::string& operation) {
    const auto calls = log.calls();
    return std::count_if(calls.begin(), calls.end(),
                         [&](const std::string& call) { return call.starts_with(operation); });
  }

  void expectAllHaveHeardOfTheEnd() {
    for (const auto& each : departures) EXPECT_EQ(count(each.log, "disconnected("), 1);
    for (const CallLog& each : logs) EXPECT_EQ(count(each, "setVideoProperty("), 1);
  }

  const Watchdog watchdog{hang};
  std::array<CallLog, 3> logs;
  std::array<RecordingListener, 3> listeners{
      {RecordingListener(logs[0]), RecordingListener(logs[1]), RecordingListener(logs[2])}};
  std::array<Departures, 3> departures;
  std::unique_ptr<RawClient> next;
  IpcServerManager* manager = makeManager();
};

TEST_F(ManyListeners, AllHearOfTheEndWhenTheFirstConnectionListenerThrowsThen) {
  departures[0].fault = "the first one's fault";
  const CaughtStream errors(stderr);
  connectAndLeave();
  expectAllHaveHeardOfTheEnd();
  EXPECT_EQ(errors.text(), "Client's connection ended by an exception: the first one's fault\n");
}

TEST_F(ManyListeners, AllHearOfTheEndWhenTheFirstRequestListenerThrowsThen) {
  listeners[0].onCall = throwing("the first one's fault");
  const CaughtStream errors(stderr);
  connectAndLeave();
  expectAllHaveHeardOfTheEnd();
  EXPECT_EQ(errors.text(), "Client's connection ended by an exception: the first one's fault\n");
}

TEST_F(ManyListeners, AllHearOfTheEndWhenAllThrowThenAndEachHasALineOfItsOwn) {
  for (std::size_t index = 0; index < 3; ++index) {
    listeners[index].onCall = throwing("listener " + std::to_string(index));
    departures[index].fault = "departure " + std::to_string(index);
  }
  const CaughtStream errors(stderr);
  connectAndLeave();
  expectAllHaveHeardOfTheEnd();
  std::string expected;
  for (const char* const kind : {"listener ", "departure "}) {
    for (int index = 0; index < 3; ++index) {
      expected += "Client's connection ended by an exception: " + std::string(kind) +
                  std::to_string(index) + "\n";
    }
  }
  EXPECT_EQ(errors.text(), expected);
}

TEST_F(ManyListeners, AllHearOfTheEndOfAConnectionThatTheFirstEndsWhenItBegins) {
  departures[0].throwsWhenConnected = true;
  const CaughtStream errors(stderr);
  {
    const RawClient client;
    EXPECT_TRUE(client.isAtEnd());
  }
  for (auto& each : departures) EXPECT_TRUE(each.log.await("disconnected()"));
  for (const CallLog& each : logs) EXPECT_EQ(count(each, "setVideoProperty("), 1);
  EXPECT_EQ(errors.text(), "Client's connection ended by an exception: connected\n");
}

TEST_F(ManyListeners, AllHearOfTheEndWhenTheFaultsHaveNoType) {
  listeners[0].onCall = [](const std::string& operation) {
    if (operation == "setVideoProperty") raiseForeignException();
  };
  listeners[1].onCall = [](const std::string& operation) {
    if (operation == "setVideoProperty") throw 42;
  };
  const CaughtStream errors(stderr);
  connectAndLeave();
  expectAllHaveHeardOfTheEnd();
  expectLines(errors.text(), 2);
}

TEST_F(ManyListeners, ATextOfSeveralLinesIsPrintedAsOne) {
  departures[0].fault = "one\ntwo\r\nthree\n";
  const CaughtStream errors(stderr);
  connectAndLeave();
  const std::string printed = errors.text();
  expectLines(printed, 1);
  for (const char* const part : {"one", "two", "three"}) {
    EXPECT_NE(printed.find(part), std::string::npos) << printed;
  }
  EXPECT_EQ(printed.find('\r'), std::string::npos) << printed;
}

TEST(SectionFilterListener, ATextOfSeveralLinesIsPrintedAsOne) {
  const Watchdog watchdog{hang};
  DemuxRecorder recorder;
  recorder.section = []() -> DemuxRecorder::Bytes { throw std::runtime_error("one\ntwo\r\n"); };
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const CaughtStream errors(stderr);
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  EXPECT_TRUE(client.isAtEnd());
  // The thread has ended: it prints nothing more.
  server.stop();
  const std::string printed = errors.text();
  expectLines(printed, 1);
  EXPECT_NE(printed.find("one"), std::string::npos) << printed;
  EXPECT_NE(printed.find("two"), std::string::npos) << printed;
  EXPECT_EQ(printed.find('\r'), std::string::npos) << printed;
}

/// Facades that throw when their listener is removed.
class FaultyFacades : public testing::TestWithParam<Fault> {
 protected:
  FaultyFacades() {
    host.onCall = [this](const std::string& operation) {
      if (std::find(faulty.begin(), faulty.end(), operation) != faulty.end()) GetParam().raise();
    };
  }

  /// What is deleted, and removed, from the entry on.
  std::vector<std::string> endsOf(std::vector<std::string> calls) {
    std::erase_if(calls, [](const std::string& call) {
      return call.front() != '~' && !call.starts_with("remove");
    });
    return calls;
  }

  static inline const std::vector<std::string> everyEnd{
      "removeGraphicsSettingsListener(1)",
      "~Video()",
      "removeCommandListener(nclEditingCommand, 1)",
      "~DsmCCCommand()",
      "~Property()",
      "~SI()",
      "~Carousel()",
      "~Demux()",
      "~Tuner()"};

  void failToConstruct() {
    faulty = {"removeGraphicsSettingsListener", "removeCommandListener"};
    host.throwing = "Version";
    {
      const CaughtStream errors(stderr);
      try {
        MiddlewareIpc::getInstance();
        ADD_FAILURE() << "the construction has not failed";
      } catch (const std::runtime_error& error) {
        // The first fault is the one that the host hears of.
        EXPECT_STREQ(error.what(), "no memory for Version");
      }
      EXPECT_EQ(linesOf(errors.text()), 2);
    }
    EXPECT_EQ(endsOf(host.log.take()), everyEnd);
    // Neither channel reaches what has been freed.
    {
      const RawClient control;
      EXPECT_EQ(control.ask(request(VERSION, 1)).group, VERSION);
      const RawClient sections(RawClient::sectionFilter);
      sections.send(word(13));
      EXPECT_EQ(sections.receive(4), word(0));
    }
    EXPECT_EQ(host.log.take(), std::vector<std::string>());
    IpcServerManager::destroy();
  }

  const Watchdog watchdog{hang};
  FakeHost host;
  std::vector<std::string> faulty;
};

TEST_P(FaultyFacades, DoNotKeepTheDeletionFromItsEnd) {
  for (const auto& operations : std::vector<std::vector<std::string>>{
           {"removeGraphicsSettingsListener"},
           {"removeCommandListener"},
           {"removeGraphicsSettingsListener", "removeCommandListener"}}) {
    faulty = operations;
    MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
    host.log.take();
    const CaughtStream errors(stderr);
    deleteAdapter(adapter);
    EXPECT_EQ(endsOf(host.log.take()), everyEnd);
    EXPECT_EQ(linesOf(errors.text()), static_cast<std::ptrdiff_t>(operations.size()));
  }
  // The next adapter serves its client.
  faulty.clear();
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  {
    const RawClient client;
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  }
  deleteAdapter(adapter);
}

TEST_P(FaultyFacades, DoNotKeepAFailedConstructionFromItsEnd) {
  // After it the process can have no adapter any more, so that it is made in one of its own.
  if (IS_EMULATED) GTEST_SKIP() << "an emulator forks no process with threads";
  startDeathTestAnew();
  EXPECT_EXIT(
      {
        failToConstruct();
        std::exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(EachType, FaultyFacades, testing::ValuesIn(faults),
                         [](const auto& fault) { return std::string(fault.param.name); });

}  // namespace
}  // namespace quillwork
