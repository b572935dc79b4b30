#include "ipc/IpcDemuxServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "ipc/AcceptThread.h"
#include "ipc/Lock.h"

namespace quillwork {
namespace {

using Bytes = std::vector<unsigned char>;

// Shared by all servers of the process; an accept thread keeps the numbers of its own.
int listenSocket = -1;
int clientSocket = -1;

constexpr const char* path = "/dev/shm/ipcdemux.socket";
constexpr int pathLength = 24;

// A section has 4096 bytes, and a pattern no more. What is far beyond is not stored but taken for
// more than memory holds: the process must not be killed for what a client claims to send.
constexpr std::int32_t longestVector = 16 << 20;

// How long a call into a released listener may take to come back by itself.
constexpr long graceNanoseconds = 200'000'000;

std::atomic_ref<int> client() { return std::atomic_ref<int>(clientSocket); }

/// What the channel speaks to when its listener has been released: as if the receiver had no
/// demultiplexer.
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

// Guards the list of the sessions and what other threads touch of each, and callEnded.
pthread_mutex_t sessionsMutex = PTHREAD_MUTEX_INITIALIZER;

// Signalled when a call into a listener has come back, while releaseListener() waits for one.
pthread_cond_t* callEnded = nullptr;

// Held by the one thread that releases a listener. Taken before the sessions' mutex.
pthread_mutex_t releaseMutex = PTHREAD_MUTEX_INITIALIZER;

/// A condition whose deadline the receiver's wall clock cannot move: that clock jumps when the
/// broadcast's time arrives.
class MonotonicCondition {
 public:
  MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~MonotonicCondition() { pthread_cond_destroy(&condition_); }
  MonotonicCondition(const MonotonicCondition&) = delete;
  MonotonicCondition& operator=(const MonotonicCondition&) = delete;

  pthread_cond_t& condition() { return condition_; }

  static timespec deadline(long nanoseconds) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_nsec += nanoseconds;
    if (time.tv_nsec >= 1'000'000'000) {
      time.tv_nsec -= 1'000'000'000;
      ++time.tv_sec;
    }
    return time;
  }

 private:
  pthread_cond_t condition_;
};

/// The arguments of one request, as they come from the client. After a failed receive everything
/// keeps the value that it had.
class Arguments {
 public:
  explicit Arguments(int connection) : connection_(connection) {}

  std::int32_t integer(std::int32_t kept) const {
    std::int32_t value = 0;
    return recv(connection_, &value, sizeof value, MSG_WAITALL) == sizeof value ? value : kept;
  }

  Bytes vector() {
    Bytes bytes;
    count_ = integer(count_);
    if (count_ > longestVector) {
      throw std::length_error("a vector of " + std::to_string(count_) + " bytes");
    }
    for (std::int32_t index = 0; index < count_; ++index) {
      if (recv(connection_, &byte_, 1, MSG_WAITALL) != 1) {
        // The peer is gone for good: every further receive would leave the byte as it is.
        bytes.insert(bytes.end(), static_cast<std::size_t>(count_ - index), byte_);
        break;
      }
      bytes.push_back(byte_);
    }
    return bytes;
  }

 private:
  int connection_;
  std::int32_t count_ = 0;
  unsigned char byte_ = 0;
};

}  // namespace

/// What one accept thread works with. It outlives the server if the host destroys that one first.
/// The thread discards it when it ends by itself; whoever cancels and joins the thread does so
/// otherwise, so that no lock is taken while a cancelled stack unwinds.
class IpcDemuxServer::Session {
 public:
  /// A session of the calling thread.
  static Session& create(IpcDemuxServer* server, int listening, int connection);
  static void discard(pthread_t thread);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// The thread's work, until the server is stopped or accept() fails.
  void serve();

  /// With the sessions' mutex held: the session that is calling the listener, or null.
  static Session* calling(const IpcDemuxServerListener* listener);
  static void detachFrom(const IpcDemuxServer* server);
  static void replaceListener(IpcDemuxServerListener* listener);
  /// Cancels the session's thread inside its call, joins it and puts a new thread into its place,
  /// which answers an interrupted read with the count 0. Takes over the sessions' mutex locked and
  /// unlocks it.
  void replaceThread();

 private:
  struct Legacy;

  Session(IpcDemuxServer* server, int listening, int connection)
      : server_(server), listening_(listening), connection_(connection) {}
  using Handler = void (Session::*)();
  static const std::array<Handler, 14> requests;
  static constexpr std::int32_t readSectionCode = 13;

  static void* succeed(void* legacy);

  bool hasListener();
  bool isInService();
  void serveClient();
  void closeConnection();
  void sendSection(const Bytes& section) const;
  template <class Operation>
  void call(Operation operation);
  IpcDemuxServerListener* beginCall();
  void endCall();
  void awaitCancellationIfReplaced();

  template <void (IpcDemuxServerListener::*operation)()>
  void withoutArguments();
  template <void (IpcDemuxServerListener::*operation)(int)>
  void withIdentifier();
  template <void (IpcDemuxServerListener::*operation)(int, const Bytes&, const Bytes&)>
  void withTwoVectors();
  void setXorFilter();
  void setTimeOut();
  void readSection();

  static Session* sessions;

  Session* next_ = nullptr;
  IpcDemuxServer* server_;
  const pthread_t thread_ = pthread_self();
  const int listening_;
  int connection_;
  std::int32_t code_ = 0;
  IpcDemuxServerListener* calling_ = nullptr;
  bool replaced_ = false;
};

// Row by row the requests of the protocol; the index is the request's code.
const std::array<IpcDemuxServer::Session::Handler, 14> IpcDemuxServer::Session::requests = {
    &Session::withoutArguments<&IpcDemuxServerListener::start>,
    &Session::withoutArguments<&IpcDemuxServerListener::stop>,
    &Session::withIdentifier<&IpcDemuxServerListener::set_pid>,
    &Session::withIdentifier<&IpcDemuxServerListener::set_table_id>,
    &Session::withTwoVectors<&IpcDemuxServerListener::set_positive_filter>,
    &Session::withTwoVectors<&IpcDemuxServerListener::set_greater_than_filter>,
    &Session::withTwoVectors<&IpcDemuxServerListener::set_less_than_filter>,
    &Session::setXorFilter,
    &Session::setTimeOut,
    &Session::withoutArguments<&IpcDemuxServerListener::clear_table_id>,
    &Session::withoutArguments<&IpcDemuxServerListener::clear_positive_filter>,
    &Session::withoutArguments<&IpcDemuxServerListener::clear_less_than_filter>,
    &Session::withoutArguments<&IpcDemuxServerListener::clear_xor_filter>,
    &Session::readSection,
};

IpcDemuxServer::Session* IpcDemuxServer::Session::sessions = nullptr;

/// What a cancelled session leaves to the one that takes its place.
struct IpcDemuxServer::Session::Legacy {
  IpcDemuxServer* server;
  int listening;
  int connection;
  bool owesSection;
};

IpcDemuxServer::Session& IpcDemuxServer::Session::create(IpcDemuxServer* server, int listening,
                                                         int connection) {
  auto* const session = new Session(server, listening, connection);
  const Lock lock(sessionsMutex);
  session->next_ = sessions;
  sessions = session;
  return *session;
}

void IpcDemuxServer::Session::discard(pthread_t thread) {
  const Lock lock(sessionsMutex);
  Session** link = &sessions;
  while (*link != nullptr && pthread_equal((*link)->thread_, thread) == 0) link = &(*link)->next_;
  if (*link == nullptr) return;
  Session* const ended = *link;
  *link = ended->next_;
  delete ended;
}

void IpcDemuxServer::Session::detachFrom(const IpcDemuxServer* server) {
  const Lock lock(sessionsMutex);
  for (Session* session = sessions; session != nullptr; session = session->next_) {
    if (session->server_ == server) session->server_ = nullptr;
  }
}

IpcDemuxServer::Session* IpcDemuxServer::Session::calling(const IpcDemuxServerListener* listener) {
  Session* session = sessions;
  while (session != nullptr && session->calling_ != listener) session = session->next_;
  return session;
}

void IpcDemuxServer::Session::replaceListener(IpcDemuxServerListener* listener) {
  for (Session* session = sessions; session != nullptr; session = session->next_) {
    if (session->server_ == nullptr) continue;
    IpcDemuxServerListener* expected = listener;
    std::atomic_ref(session->server_->listener).compare_exchange_strong(expected, &noDemultiplexer);
  }
}

void IpcDemuxServer::Session::replaceThread() {
  // From here on the old thread does nothing more with the connection, even if its call comes back
  // before the cancellation strikes.
  replaced_ = true;
  IpcDemuxServer* const server = server_;
  const pthread_t old = thread_;
  auto legacy =
      std::make_unique<Legacy>(Legacy{server_, listening_, connection_, code_ == readSectionCode});
  pthread_mutex_unlock(&sessionsMutex);
  pthread_cancel(old);
  pthread_join(old, nullptr);
  discard(old);
  pthread_t successor{};
  const int connection = legacy->connection;
  if (createAcceptThread(successor, succeed, legacy.get()) == 0) {
    static_cast<void>(legacy.release());
  } else {
    close(connection);
    successor = {};
  }
  if (server != nullptr) server->thread = successor;
}

void* IpcDemuxServer::Session::succeed(void* argument) {
  const std::unique_ptr<Legacy> legacy(static_cast<Legacy*>(argument));
  pthread_setname_np(pthread_self(), "ipc-demux");
  Session& session = create(legacy->server, legacy->listening, legacy->connection);
  if (legacy->owesSection) session.sendSection({});
  session.serveClient();
  session.serve();
  discard(pthread_self());
  return nullptr;
}

void IpcDemuxServer::Session::serve() {
  while (isInService()) {
    connection_ = acceptClient(listening_);
    if (connection_ == -1) return;
    client().store(connection_);
    serveClient();
  }
}

void IpcDemuxServer::Session::serveClient() {
  while (recv(connection_, &code_, sizeof code_, MSG_WAITALL) > 0) {
    const auto index = static_cast<std::uint32_t>(code_);
    if (!hasListener() || index >= requests.size()) continue;
    const bool served = callHost([&] { (this->*requests[index])(); });
    awaitCancellationIfReplaced();
    if (!served) break;
  }
  closeConnection();
}

void IpcDemuxServer::Session::closeConnection() {
  close(connection_);
  // Another server may have put its own client there.
  int expected = connection_;
  client().compare_exchange_strong(expected, -1);
}

bool IpcDemuxServer::Session::hasListener() {
  const Lock lock(sessionsMutex);
  return server_ != nullptr && std::atomic_ref(server_->listener).load() != nullptr;
}

bool IpcDemuxServer::Session::isInService() {
  const Lock lock(sessionsMutex);
  // The thread of a destroyed server goes on.
  return server_ == nullptr || std::atomic_ref(server_->running).load();
}

template <class Operation>
void IpcDemuxServer::Session::call(Operation operation) {
  if (IpcDemuxServerListener* const target = beginCall()) {
    try {
      operation(*target);
    } catch (...) {
      // Whoever has cancelled the call discards the session.
      if (!isCancellation()) endCall();
      throw;
    }
  }
  endCall();
  awaitCancellationIfReplaced();
}

/// Marks the server's listener, which may be null, as in use.
IpcDemuxServerListener* IpcDemuxServer::Session::beginCall() {
  const Lock lock(sessionsMutex);
  if (server_ != nullptr) calling_ = std::atomic_ref(server_->listener).load();
  return calling_;
}

void IpcDemuxServer::Session::endCall() {
  const Lock lock(sessionsMutex);
  calling_ = nullptr;
  if (callEnded != nullptr) pthread_cond_signal(callEnded);
}

void IpcDemuxServer::Session::awaitCancellationIfReplaced() {
  bool replaced = false;
  {
    const Lock lock(sessionsMutex);
    replaced = replaced_;
  }
  if (!replaced) return;
  for (;;) pause();
}

template <void (IpcDemuxServerListener::*operation)()>
void IpcDemuxServer::Session::withoutArguments() {
  call([](IpcDemuxServerListener& target) { (target.*operation)(); });
}

template <void (IpcDemuxServerListener::*operation)(int)>
void IpcDemuxServer::Session::withIdentifier() {
  const int identifier = Arguments(connection_).integer(-1);
  call([&](IpcDemuxServerListener& target) { (target.*operation)(identifier); });
}

template <void (IpcDemuxServerListener::*operation)(int, const Bytes&, const Bytes&)>
void IpcDemuxServer::Session::withTwoVectors() {
  Arguments arguments(connection_);
  const int filterArg = arguments.integer(0);
  const Bytes first = arguments.vector();
  const Bytes second = arguments.vector();
  call([&](IpcDemuxServerListener& target) { (target.*operation)(filterArg, first, second); });
}

void IpcDemuxServer::Session::setXorFilter() {
  Arguments arguments(connection_);
  const int filterArg = arguments.integer(0);
  const Bytes first = arguments.vector();
  const Bytes second = arguments.vector();
  const Bytes third = arguments.vector();
  call([&](IpcDemuxServerListener& target) {
    target.set_xor_filter(filterArg, first, second, third);
  });
}

void IpcDemuxServer::Session::setTimeOut() {
  const std::int32_t timeOut = Arguments(connection_).integer(0);
  call([&](IpcDemuxServerListener& target) { target.set_time_out(timeOut); });
}

void IpcDemuxServer::Session::readSection() {
  Bytes section;
  call([&](IpcDemuxServerListener& target) { section = target.read_section(); });
  sendSection(section);
}

void IpcDemuxServer::Session::sendSection(const Bytes& section) const {
  const auto count = static_cast<std::int32_t>(section.size());
  if (send(connection_, &count, sizeof count, MSG_NOSIGNAL) != sizeof count) {
    std::perror("Can't send size");
    return;
  }
  for (const unsigned char& byte : section) {
    if (send(connection_, &byte, 1, MSG_NOSIGNAL) != 1) std::perror("Can't send data[i]");
  }
}

IpcDemuxServer::IpcDemuxServer()
    : listener(nullptr), socketPath(path), socketPathLength(pathLength), running(false), thread() {}

IpcDemuxServer::~IpcDemuxServer() { Session::detachFrom(this); }

void IpcDemuxServer::setListener(IpcDemuxServerListener* listenerToCall) {
  std::atomic_ref(listener).store(listenerToCall);
}

void IpcDemuxServer::releaseListener(IpcDemuxServerListener* listener) {
  const Lock alone(releaseMutex);
  MonotonicCondition ended;
  const timespec deadline = MonotonicCondition::deadline(graceNanoseconds);
  pthread_mutex_lock(&sessionsMutex);
  Session::replaceListener(listener);
  callEnded = &ended.condition();
  while (Session::calling(listener) != nullptr &&
         pthread_cond_timedwait(callEnded, &sessionsMutex, &deadline) == 0) {
  }
  callEnded = nullptr;
  if (Session* const blocked = Session::calling(listener)) {
    blocked->replaceThread();
  } else {
    pthread_mutex_unlock(&sessionsMutex);
  }
}

void IpcDemuxServer::start() {
  const std::atomic_ref<bool> inService(running);
  if (inService.load()) return;
  // The number may belong to a file of the host's by now.
  client().store(-1);
  if (openListeningSocket(listenSocket, socketPath, socketPathLength)) {
    // The thread takes the listening socket's number for its own before another server can put a
    // different one there.
    if (createAcceptThread(thread, run, this) == 0) {
      inService.wait(false);
    } else {
      thread = {};
    }
  }
  inService.store(true);
}

void IpcDemuxServer::stop() {
  const std::atomic_ref<bool> inService(running);
  if (!inService.load()) return;
  // A failed start leaves no thread.
  if (thread != pthread_t{}) {
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    Session::discard(thread);
    thread = {};
  }
  if (client().load() != -1) close(client().load());
  if (listenSocket != -1) close(listenSocket);
  inService.store(false);
}

void* IpcDemuxServer::run(void* argument) {
  if (argument == nullptr) return nullptr;
  auto* const server = static_cast<IpcDemuxServer*>(argument);
  pthread_setname_np(pthread_self(), "ipc-demux");
  Session& session = Session::create(server, listenSocket, -1);
  const std::atomic_ref<bool> inService(server->running);
  inService.store(true);
  inService.notify_all();
  session.serve();
  Session::discard(pthread_self());
  return nullptr;
}

}  // namespace quillwork
