#include "ipc/Report.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "ipc/Cancellation.h"

namespace quillwork {
namespace {

/// The file's type, as in the mode of a stat. Asks for nothing else: an inode number or a time that
/// does not fit 32 bits would fail the whole call. If the call fails, the file counts as a regular
/// one.
mode_t typeOf(int file) {
  struct statx status {};
  if (statx(file, "", AT_EMPTY_PATH, STATX_TYPE, &status) != 0) return S_IFREG;
  return status.stx_mode & S_IFMT;
}

/// Whether a pipe takes a page, or a terminal a byte, without waiting.
bool hasRoom(int file) {
  pollfd room{file, POLLOUT, 0};
  return poll(&room, 1, 0) == 1 && (room.revents & POLLOUT) != 0;
}

void writeUnchecked(int file, std::string_view text) {
  static_cast<void>(!write(file, text.data(), text.size()));
}

/// Writes to a file that does not support a single write without waiting, such as a terminal. The
/// write goes through a new open file description, so that the host's stays blocking.
void writeThroughOwnDescription(int file, std::string_view text) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
  const int own = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (own != -1) {
    writeUnchecked(own, text);
    close(own);
  } else if (hasRoom(file)) {
    // Opening failed: the terminal belongs to another user, for instance.
    writeUnchecked(file, text);
  }
}

/// Writes as much as the file takes at once.
void writeAtOnce(int file, mode_t type, std::string_view text) {
  // A file on a disk never waits for a reader, and could refuse a write that must not wait.
  if (type == S_IFREG) return writeUnchecked(file, text);
  const iovec piece{const_cast<char*>(text.data()), text.size()};
  if (pwritev2(file, &piece, 1, -1, RWF_NOWAIT) != -1 || errno != EOPNOTSUPP) return;
  if (type == S_IFCHR || type == S_IFIFO) {
    writeThroughOwnDescription(file, text);
  } else if (hasRoom(file)) {
    writeUnchecked(file, text);
  }
}

/// Holds SIGPIPE off for a scope: a reader that has gone must not end the host.
class WithoutBrokenPipes {
 public:
  WithoutBrokenPipes() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  ~WithoutBrokenPipes() {
    constexpr timespec atOnce{};
    if (!wasPending_) sigtimedwait(&signal_, nullptr, &atOnce);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutBrokenPipes(const WithoutBrokenPipes&) = delete;
  WithoutBrokenPipes& operator=(const WithoutBrokenPipes&) = delete;

 private:
  sigset_t signal_;
  sigset_t before_;
  bool wasPending_;
};

/// Whether a pipe is empty and large enough.
bool takesWhole(int pipe, std::size_t size) {
  int held = 0;
  const int capacity = fcntl(pipe, F_GETPIPE_SZ);
  return ioctl(pipe, FIONREAD, &held) == 0 && held == 0 && capacity > 0 &&
         size <= static_cast<std::size_t>(capacity);
}

/// Writes what the host has printed and its stream still holds, where that does not block.
void flushPending(std::FILE* stream, mode_t type) {
  const std::size_t pending = __fpending(stream);
  const int file = fileno(stream);
  // A terminal does not tell how much it takes at once. At most the beginning of a line is pending
  // for it.
  if (pending == 0 || isatty(file) == 1) return;
  if (type == S_IFREG || (pending <= PIPE_BUF ? hasRoom(file) : takesWhole(file, pending))) {
    std::fflush(stream);
  }
}

/// Collects a text of limited length.
class Text {
 public:
  /// Leaves room for a line end.
  void append(std::string_view part) {
    part = part.substr(0, sizeof characters_ - 1 - size_);
    part.copy(characters_ + size_, part.size());
    size_ += part.size();
  }
  std::string_view line() {
    characters_[size_] = '\n';
    return {characters_, size_ + 1};
  }

 private:
  std::size_t size_ = 0;
  char characters_[PIPE_BUF];
};

void appendWithoutLineEnds(Text& text, std::string_view part) {
  while (!part.empty()) {
    const std::size_t lineEnd = part.find_first_of("\r\n");
    text.append(part.substr(0, lineEnd));
    part.remove_prefix(lineEnd == std::string_view::npos ? part.size() : lineEnd + 1);
  }
}

}  // namespace

void print(std::FILE* stream, std::string_view text) {
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  const int before = errno;
  const WithoutBrokenPipes held;
  // A thread of the host's that holds the stream may be blocked in a print, for as long as the
  // reader does not read. So the stream is not waited for: its buffer is left as it is.
  const bool isHeld = ftrylockfile(stream) == 0;
  const mode_t type = typeOf(fileno(stream));
  if (isHeld) flushPending(stream, type);
  writeAtOnce(fileno(stream), type, text.substr(0, PIPE_BUF));
  if (isHeld) funlockfile(stream);
  errno = before;
}

void printLine(std::FILE* stream, std::initializer_list<std::string_view> parts) {
  Text text;
  for (const std::string_view part : parts) appendWithoutLineEnds(text, part);
  print(stream, text.line());
}

void reportFailure(const char* text) {
  char meaning[128];
  printLine(stderr, {text, ": ", strerror_r(errno, meaning, sizeof meaning)});
}

}  // namespace quillwork
