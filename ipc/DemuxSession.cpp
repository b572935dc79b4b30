#include "ipc/DemuxSession.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <sys/socket.h>

#include <atomic>
#include <utility>

#include "ipc/AcceptThread.h"
#include "ipc/Cancellation.h"
#include "ipc/HostCall.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/ListeningSocket.h"
#include "ipc/PerServer.h"
#include "ipc/Report.h"
#include "ipc/receive.h"

namespace quillwork {
namespace {

using Bytes = SectionRequest::Bytes;

// Shared by all servers of the process; each session also keeps its own.
int listenSocket = -1;
int clientSocket = -1;

// How long a call into a released listener may take to come back by itself.
constexpr long graceNanoseconds = 200'000'000;

/// The listener in the place of a released one: it answers as if the receiver had no demultiplexer.
class NoDemultiplexer : public IpcDemuxServerListener {
 public:
  void start() override {}
  void stop() override {}
  void set_pid(int) override {}
  void set_table_id(int) override {}
  void set_positive_filter(int, const Bytes&, const Bytes&) override {}
  void set_greater_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_less_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_xor_filter(int, const Bytes&, const Bytes&, const Bytes&) override {}
  void set_time_out(long) override {}
  void clear_table_id() override {}
  void clear_positive_filter() override {}
  void clear_less_than_filter() override {}
  void clear_xor_filter() override {}
  Bytes read_section() override { return {}; }
};

constinit NoDemultiplexer noDemultiplexer;

/// The first cancellation of a process loads the unwinder, and ends the process when there is no
/// memory for that.
void loadUnwinder() {
  void* frame = nullptr;
  backtrace(&frame, 1);
}

}  // namespace

constexpr DemuxSession::DemuxSession() : listening_(listenSocket), connection_(clientSocket) {}

namespace {
constinit PerServer<DemuxSession> sessions;
}  // namespace

constinit Mutex DemuxSession::threads;
constinit Mutex DemuxSession::state;
MonotonicCondition* DemuxSession::callEnded = nullptr;

class DemuxSession::Source : public ByteSource {
 public:
  explicit Source(int socket) : socket_(socket) {}
  std::size_t read(void* to, std::size_t size) override { return receiveWhole(socket_, to, size); }

 private:
  int socket_;
};

DemuxSession* DemuxSession::claim(IpcDemuxServer& server) { return sessions.claim(&server); }

DemuxSession* DemuxSession::of(const IpcDemuxServer& server) { return sessions.find(&server); }

bool DemuxSession::start(IpcDemuxServer& server, Descriptor listeningSocket) {
  const Lock alone(threads);
  listening_.own(std::move(listeningSocket));
  code_ = 0;
  {
    const Lock lock(state);
    server_ = &server;
  }
  loadUnwinder();
  pthread_t created{};
  if (createAcceptThread(created, IpcDemuxServer::run, &server) != 0) {
    listening_.close();
    const Lock lock(state);
    server_ = nullptr;
    sessions.release(&server);
    return false;
  }
  setThread(created);
  return true;
}

void DemuxSession::stop() {
  const Lock alone(threads);
  const IpcDemuxServer* server = nullptr;
  {
    const Lock lock(state);
    mustLeave_ = true;
    server = server_;
  }
  // The thread waits for a client, for bytes of the client, or until the client reads.
  listening_.shutDown();
  connection_.shutDown();
  endThread();
  connection_.close();
  listening_.close();
  {
    const Lock lock(state);
    calling_ = nullptr;
    mustLeave_ = false;
    server_ = nullptr;
  }
  sessions.release(server);
}

void DemuxSession::detach() {
  const Lock lock(state);
  sessions.orphan(server_);
  server_ = nullptr;
}

void DemuxSession::releaseListener(IpcDemuxServerListener* listener) {
  if (listener == nullptr) return;
  // A cancellation of the calling thread waits until no call into the listener is left.
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  const Lock alone(threads);
  MonotonicCondition ended;
  const timespec deadline = MonotonicCondition::deadlineIn(graceNanoseconds);
  {
    const Lock lock(state);
    for (DemuxSession& session : sessions) session.replaceListener(listener);
    callEnded = &ended;
    while (isCalled(listener) && ended.waitUntil(state, deadline)) {
    }
    callEnded = nullptr;
  }
  for (DemuxSession& session : sessions) session.replaceThreadInside(listener);
}

void DemuxSession::replaceListener(IpcDemuxServerListener* listener) {
  if (server_ == nullptr) return;
  std::atomic_ref(server_->listener).compare_exchange_strong(listener, &noDemultiplexer);
}

bool DemuxSession::isCalled(const IpcDemuxServerListener* listener) {
  for (DemuxSession& session : sessions) {
    if (session.calling_ == listener) return true;
  }
  return false;
}

// A call that comes back before the cancellation strikes finds that its thread must leave.
void DemuxSession::replaceThreadInside(const IpcDemuxServerListener* listener) {
  {
    const Lock lock(state);
    if (calling_ != listener) return;
    mustLeave_ = true;
  }
  endThread();
  owesSection_ = code_ == SectionRequest::readSection && connection_.number() != -1;
  {
    const Lock lock(state);
    calling_ = nullptr;
    mustLeave_ = false;
  }
  pthread_t successor{};
  if (createAcceptThread(successor, run, this) != 0) {
    successor = {};
    connection_.close();
    listening_.close();
  }
  setThread(successor);
}

void DemuxSession::endThread() {
  if (thread_ == pthread_t{}) return;
  pthread_cancel(thread_);
  pthread_join(thread_, nullptr);
  setThread({});
}

void DemuxSession::setThread(pthread_t thread) {
  thread_ = thread;
  const Lock lock(state);
  if (server_ != nullptr) server_->thread = thread;
}

void* DemuxSession::run(void* argument) {
  beginAcceptThread("ipc-demux");
  auto& session = *static_cast<DemuxSession*>(argument);
  session.announce();
  if (std::exchange(session.owesSection_, false)) session.sendSection({});
  if (session.connection_.number() != -1) session.serveClient();
  session.serve();
  return nullptr;
}

void DemuxSession::announce() {
  const Lock lock(state);
  if (server_ == nullptr) return;
  const std::atomic_ref<bool> inService(server_->running);
  inService.store(true);
  inService.notify_all();
}

void DemuxSession::serve() {
  while (!mustLeave()) {
    Descriptor accepted = acceptClient(listening_.number());
    if (accepted.number() == -1) {
      if (!mustLeave()) reportFailure("Can't accept new connections");
      return;
    }
    connection_.own(std::move(accepted));
    if (!mustLeave()) serveClient();
  }
}

void DemuxSession::serveClient() {
  Source source(connection_.number());
  while (source.read(&code_, sizeof code_) > 0) {
    if (static_cast<std::uint32_t>(code_) >= SectionRequest::codeCount || !hasListener()) continue;
    if (!callHost([&] { serveRequest(source); })) break;
    if (mustLeave()) return;
  }
  connection_.close();
}

void DemuxSession::serveRequest(ByteSource& source) {
  const Bytes section = call(readArguments(code_, source));
  if (code_ == SectionRequest::readSection && !mustLeave()) sendSection(section);
}

QUILLWORK_CATCHES_UNWINDING Bytes DemuxSession::call(const SectionRequest& request) {
  IpcDemuxServerListener* const target = beginCall();
  if (target == nullptr) return {};
  Bytes section;
  try {
    const CancellationScope mayBeCancelled(PTHREAD_CANCEL_ENABLE);
    section = perform(request, *target);
  } catch (const abi::__forced_unwind&) {
    // The thread that has cancelled this one ends the call: no lock is taken while a cancelled
    // stack unwinds, which ThreadSanitizer would not see.
    throw;
  } catch (...) {
    endCall();
    throw;
  }
  endCall();
  return section;
}

/// Marks the session's listener, if it has one, as being called.
IpcDemuxServerListener* DemuxSession::beginCall() {
  const Lock lock(state);
  calling_ = listener();
  return calling_;
}

void DemuxSession::endCall() {
  const Lock lock(state);
  calling_ = nullptr;
  if (callEnded != nullptr) callEnded->signal();
}

void DemuxSession::sendSection(const Bytes& section) {
  const int to = connection_.number();
  const auto count = static_cast<std::int32_t>(section.size());
  if (send(to, &count, sizeof count, MSG_NOSIGNAL) != sizeof count) {
    if (!mustLeave()) reportFailure("Can't send size");
    return;
  }
  for (const unsigned char& byte : section) {
    if (send(to, &byte, 1, MSG_NOSIGNAL) == 1) continue;
    // A stop does not wait for the rest to fail byte by byte.
    if (mustLeave()) return;
    reportFailure("Can't send data[i]");
  }
}

bool DemuxSession::mustLeave() {
  const Lock lock(state);
  return mustLeave_;
}

bool DemuxSession::hasListener() {
  const Lock lock(state);
  return listener() != nullptr;
}

IpcDemuxServerListener* DemuxSession::listener() {
  if (server_ == nullptr || mustLeave_) return nullptr;
  return std::atomic_ref(server_->listener).load();
}

}  // namespace quillwork
