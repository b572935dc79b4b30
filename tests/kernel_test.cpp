// What the library takes for granted of the kernel and the C library: how a blocked send is woken,
// what half a connection does, where a cancellation strikes.

#include <cxxabi.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "support/RawClient.h"
#include "support/Threads.h"
#include "support/UnixSocket.h"

namespace {

/// Two connected Unix-domain stream sockets.
class Pair {
 public:
  Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0); }
  ~Pair() {
    for (const int end : ends_) {
      if (end != -1) close(end);
    }
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  [[nodiscard]] int ours() const { return ends_[0]; }
  [[nodiscard]] int theirs() const { return ends_[1]; }
  void closeTheirs() { close(std::exchange(ends_[1], -1)); }

 private:
  int ends_[2] = {-1, -1};
};

/// A thread that sends until a send fails, and the error number of that one.
class Sender {
 public:
  explicit Sender(int socket)
      : thread_([this, socket] {
          id_ = threadId();
          char bytes[1960] = {};
          while (send(socket, bytes, sizeof bytes, MSG_NOSIGNAL) == sizeof bytes) {
          }
          error_ = errno;
        }) {}
  void awaitBlocked() const { awaitSleeping(id_); }
  int join() {
    thread_.join();
    return error_;
  }

 private:
  std::atomic<pid_t> id_{0};
  int error_ = 0;
  std::thread thread_;
};

bool isReadable(int socket) {
  pollfd ready{socket, POLLIN, 0};
  return poll(&ready, 1, 0) == 1;
}

TEST(BlockedSend, IsWokenByAShutdownOfItsSendingDirection) {
  const Pair pair;
  Sender sender(pair.ours());
  sender.awaitBlocked();
  shutdown(pair.ours(), SHUT_WR);
  const int error = sender.join();
  // The last one may have sent a part of its bytes, and then the next one failed.
  EXPECT_EQ(error, EPIPE);
  // The receiving direction stands: nothing looks like the peer's leaving.
  EXPECT_FALSE(isReadable(pair.ours()));
  EXPECT_EQ(send(pair.theirs(), "x", 1, MSG_NOSIGNAL), 1);
  char byte = 0;
  EXPECT_EQ(recv(pair.ours(), &byte, 1, 0), 1);
}

TEST(BlockedSend, IsWokenByAShutdownOfBothDirections) {
  const Pair pair;
  Sender sender(pair.ours());
  sender.awaitBlocked();
  shutdown(pair.ours(), SHUT_RDWR);
  EXPECT_EQ(sender.join(), EPIPE);
}

TEST(BlockedSend, IsWokenByThePeersClose) {
  Pair pair;
  Sender sender(pair.ours());
  sender.awaitBlocked();
  pair.closeTheirs();
  const int error = sender.join();
  EXPECT_TRUE(error == EPIPE || error == ECONNRESET) << error;
}

TEST(BlockedSend, IsWokenWhenThePeerShutsItsReceivingDirection) {
  const Pair pair;
  Sender sender(pair.ours());
  sender.awaitBlocked();
  shutdown(pair.theirs(), SHUT_RD);
  EXPECT_EQ(sender.join(), EPIPE);
}

TEST(BlockedReceive, IsWokenByAShutdownOfBothDirections) {
  const Pair pair;
  std::atomic<pid_t> id{0};
  ssize_t received = -1;
  std::thread thread([&] {
    id = threadId();
    char bytes[8];
    received = recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL);
  });
  awaitSleeping(id);
  shutdown(pair.ours(), SHUT_RDWR);
  thread.join();
  EXPECT_EQ(received, 0);
}

TEST(FullPipe, RefusesAWriteThatMustNotWaitOrKnowsNoSuchWrite) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  char page[4096] = {};
  const iovec piece{page, sizeof page};
  while (pwritev2(pipe[1], &piece, 1, -1, RWF_NOWAIT) > 0) {
  }
  EXPECT_TRUE(errno == EAGAIN || errno == EOPNOTSUPP) << errno;
  EXPECT_EQ(fcntl(pipe[1], F_GETFL) & O_NONBLOCK, 0);
  close(pipe[0]);
  close(pipe[1]);
}

TEST(FullPipe, HasADescriptionOfItsOwnForEachOpeningThatDoesNotBlockTheOther) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const std::string path = "/proc/self/fd/" + std::to_string(pipe[1]);
  const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(own, -1);
  char page[4096] = {};
  while (write(own, page, sizeof page) > 0) {
  }
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(fcntl(pipe[1], F_GETFL) & O_NONBLOCK, 0);
  close(own);
  close(pipe[0]);
  close(pipe[1]);
}

TEST(HalfClosedPeer, StillTakesWhatIsSent) {
  const Pair pair;
  shutdown(pair.theirs(), SHUT_WR);
  char bytes[4] = {};
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 0);
  EXPECT_EQ(send(pair.ours(), "abcd", 4, MSG_NOSIGNAL), 4);
  EXPECT_EQ(recv(pair.theirs(), bytes, sizeof bytes, MSG_WAITALL), 4);
}

TEST(HalfClosedPeer, EndsAReceiveOfAllWithThePartThatCame) {
  const Pair pair;
  EXPECT_EQ(send(pair.theirs(), "abc", 3, 0), 3);
  shutdown(pair.theirs(), SHUT_WR);
  char bytes[8] = {};
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 3);
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 0);
}

TEST(HalfClosedPeer, LeavesWhatItSentBeforeItClosed) {
  Pair pair;
  EXPECT_EQ(send(pair.theirs(), "abc", 3, 0), 3);
  pair.closeTheirs();
  char bytes[3] = {};
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 3);
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 0);
}

TEST(HalfClosedPeer, IsResetWhenWeCloseWithItsBytesUnread) {
  Pair pair;
  EXPECT_EQ(send(pair.ours(), "abc", 3, 0), 3);
  EXPECT_EQ(send(pair.theirs(), "reply", 5, 0), 5);
  pair.closeTheirs();
  // What was sent before is not lost by it.
  char bytes[5] = {};
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, MSG_WAITALL), 5);
  EXPECT_EQ(recv(pair.ours(), bytes, sizeof bytes, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
}

TEST(ClosedPeer, FailsASendWithoutASignal) {
  Pair pair;
  pair.closeTheirs();
  EXPECT_EQ(send(pair.ours(), "x", 1, MSG_NOSIGNAL), -1);
  EXPECT_EQ(errno, EPIPE);
}

/// A socket that listens as the library's do.
class Listening {
 public:
  Listening() {
    unlink(name);
    EXPECT_EQ(listenAt(socket_, name), 0);
  }
  ~Listening() { close(); }
  Listening(const Listening&) = delete;
  Listening& operator=(const Listening&) = delete;

  [[nodiscard]] int descriptor() const { return socket_; }
  void close() {
    if (socket_ != -1) ::close(std::exchange(socket_, -1));
  }

  static constexpr const char* name = "/dev/shm/kernel.socket";

 private:
  int socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST(ListeningSocket, WakesABlockedAcceptWhenItIsShutDown) {
  const Listening listening;
  std::atomic<pid_t> id{0};
  int accepted = 0;
  int error = 0;
  std::thread thread([&] {
    id = threadId();
    accepted = accept4(listening.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
    error = errno;
  });
  awaitSleeping(id);
  shutdown(listening.descriptor(), SHUT_RDWR);
  thread.join();
  EXPECT_EQ(accepted, -1);
  EXPECT_EQ(error, EINVAL);
}

TEST(ListeningSocket, GivesNothingMoreOnceItIsShutDown) {
  const Listening listening;
  shutdown(listening.descriptor(), SHUT_RDWR);
  EXPECT_EQ(accept4(listening.descriptor(), nullptr, nullptr, SOCK_CLOEXEC), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(ListeningSocket, ClosedWithAConnectionThatWaitsEndsThatOne) {
  Listening listening;
  const RawClient client(Listening::name);
  listening.close();
  EXPECT_TRUE(client.isAtEnd());
}

/// A thread that can be cancelled, made without the standard library's, which would not be joined.
class Cancelled {
 public:
  explicit Cancelled(std::function<void()> body) : body_(std::move(body)) {
    pthread_create(
        &thread_, nullptr,
        [](void* self) -> void* {
          auto& cancelled = *static_cast<Cancelled*>(self);
          cancelled.id_ = threadId();
          cancelled.body_();
          return nullptr;
        },
        this);
  }
  void awaitSleep() const { awaitSleeping(id_); }
  void cancel() const { pthread_cancel(thread_); }
  /// Whether the cancellation ended it.
  [[nodiscard]] bool join() const {
    void* result = nullptr;
    pthread_join(thread_, &result);
    return result == PTHREAD_CANCELED;
  }

 private:
  std::function<void()> body_;
  std::atomic<pid_t> id_{0};
  pthread_t thread_{};
};

TEST(Cancellation, StrikesInPollReceiveAndSend) {
  const Pair pair;
  const std::function<void()> waits[] = {
      [&] {
        pollfd waiting{pair.ours(), POLLIN, 0};
        poll(&waiting, 1, -1);
      },
      [&] {
        char byte = 0;
        recv(pair.ours(), &byte, 1, MSG_WAITALL);
      },
      [&] {
        char bytes[1960] = {};
        while (send(pair.ours(), bytes, sizeof bytes, MSG_NOSIGNAL) > 0) {
        }
      },
  };
  for (const auto& wait : waits) {
    const Cancelled thread(wait);
    thread.awaitSleep();
    thread.cancel();
    EXPECT_TRUE(thread.join());
  }
}

TEST(Cancellation, WaitsUntilItIsAllowed) {
  const Pair pair;
  std::atomic<bool> hasReceived{false};
  const Cancelled thread([&] {
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    char byte = 0;
    recv(pair.ours(), &byte, 1, MSG_WAITALL);
    hasReceived = true;
    pthread_setcancelstate(before, nullptr);
    pthread_testcancel();
  });
  thread.awaitSleep();
  thread.cancel();
  EXPECT_EQ(send(pair.theirs(), "x", 1, 0), 1);
  EXPECT_TRUE(thread.join());
  EXPECT_TRUE(hasReceived);
}

TEST(Cancellation, DoesNotStrikeInAMutexWait) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_mutex_lock(&mutex);
  std::atomic<bool> hasLocked{false};
  const Cancelled thread([&] {
    pthread_mutex_lock(&mutex);
    hasLocked = true;
    pthread_mutex_unlock(&mutex);
    pthread_testcancel();
  });
  thread.awaitSleep();
  thread.cancel();
  pthread_mutex_unlock(&mutex);
  EXPECT_TRUE(thread.join());
  EXPECT_TRUE(hasLocked);
}

TEST(Cancellation, StrikesInAConditionsWaitWithTheMutexHeldAgain) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  int unlocked = -1;
  struct Unlock {
    ~Unlock() { result = pthread_mutex_unlock(&mutex); }
    pthread_mutex_t& mutex;
    int& result;
  };
  const Cancelled thread([&] {
    pthread_mutex_lock(&mutex);
    const Unlock unlock{mutex, unlocked};
    for (;;) pthread_cond_wait(&condition, &mutex);
  });
  thread.awaitSleep();
  thread.cancel();
  EXPECT_TRUE(thread.join());
  EXPECT_EQ(unlocked, 0);
  EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
}

/// Receives until the thread is cancelled; whether that has a type of its own. It has no object:
/// the reference that catches it is null.
__attribute__((noinline, no_sanitize("null"))) void receiveUntilUnwound(int socket,
                                                                        bool& wasUnwinding) {
  try {
    char byte = 0;
    recv(socket, &byte, 1, MSG_WAITALL);
  } catch (const std::exception&) {
    ADD_FAILURE();
  } catch (const abi::__forced_unwind&) {
    wasUnwinding = true;
    throw;
  }
}

TEST(Cancellation, UnwindsThroughDestructorsAndHandlersAndHasATypeOfItsOwn) {
  const Pair pair;
  bool wasDestroyed = false;
  bool wasUnwinding = false;
  struct Mark {
    ~Mark() { mark = true; }
    bool& mark;
  };
  const Cancelled thread([&] {
    const Mark mark{wasDestroyed};
    receiveUntilUnwound(pair.ours(), wasUnwinding);
  });
  thread.awaitSleep();
  thread.cancel();
  EXPECT_TRUE(thread.join());
  EXPECT_TRUE(wasDestroyed);
  EXPECT_TRUE(wasUnwinding);
}

}  // namespace
