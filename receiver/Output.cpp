#include "receiver/Output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <string_view>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

/// How long a reader may take, in milliseconds, before what it does not read is dropped.
constexpr int patience = 1000;

/// What is opened next would otherwise get the number, and be printed on.
void fillStandardStreams() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
}

/// A description of the pipe or terminal that never waits when it is written to, though the one
/// that other processes share does. The caller closes it. -1 for other files, and where it cannot
/// be opened.
int openWithoutWaiting(int file) {
  struct stat status {};
  const bool canWait =
      fstat(file, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
  if (!canWait) return -1;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
  return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// Writes what the file takes at once of the text. It has room for something.
ssize_t writeAtOnce(int file, std::string_view text) {
  // Where it could not be opened anew, more than a pipe promises would wait.
  text = text.substr(0, PIPE_BUF);
  const ssize_t sent = send(file, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return sent == -1 && errno == ENOTSOCK ? write(file, text.data(), text.size()) : sent;
}

/// The standard output, for the life of the process.
class Output {
 public:
  static Output& instance() {
    static Output output;
    return output;
  }

  void prepare(const OutputSettings& settings);
  void stopWaiting() const { eventfd_write(stopped_, 1); }
  void print(std::string_view text);

 private:
  Output() = default;

  bool awaitRoom();
  std::size_t write(std::string_view text);

  std::mutex mutex_;
  int file_ = STDOUT_FILENO;
  bool isPatient_ = true;
  /// No reader is waited for while one of them is readable: while a signal is to end the process,
  /// and after stopWaiting().
  int ending_ = -1;
  int stopped_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::size_t dropped_ = 0;
  bool isCut_ = false;  ///< what was printed last ends within a line
};

void Output::prepare(const OutputSettings& settings) {
  isPatient_ = settings.isPatient;
  ending_ = signalfd(-1, &settings.endingSignals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (settings.isQuiet) {
    const int kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept == -1 || nowhere == -1) return;
    // The library prints, too.
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    file_ = kept;
  }
  if (const int own = openWithoutWaiting(file_); own != -1) file_ = own;
}

/// Waits until the file takes something, or has nobody any more who could.
bool Output::awaitRoom() {
  // What one text has waited for in vain, the next one does not wait for again.
  const int time = dropped_ > 0 ? 0 : isPatient_ ? -1 : patience;
  pollfd files[] = {{file_, POLLOUT, 0}, {ending_, POLLIN, 0}, {stopped_, POLLIN, 0}};
  while (poll(files, std::size(files), time) == -1 && errno == EINTR) {
  }
  return files[0].revents != 0;
}

/// How much of the text has been taken.
std::size_t Output::write(std::string_view text) {
  std::size_t written = 0;
  while (written < text.size() && awaitRoom()) {
    const ssize_t size = writeAtOnce(file_, text.substr(written));
    if (size >= 0) {
      written += static_cast<std::size_t>(size);
    } else if (errno == EPIPE) {
      requestEnd();
      return text.size();
    } else if (errno != EAGAIN && errno != EINTR) {
      return text.size();
    }
  }
  return written;
}

void Output::print(std::string_view text) {
  const std::lock_guard lock(mutex_);
  if (isCut_) isCut_ = write("\n") == 0;
  const std::size_t written = isCut_ ? 0 : write(text);
  if (written == text.size()) {
    if (dropped_ > 0) {
      complain("{} texts for the standard output were dropped, which nobody read",
               std::exchange(dropped_, 0));
    }
    return;
  }
  ++dropped_;
  isCut_ = isCut_ || written > 0;
}

}  // namespace

void prepareOutput(const OutputSettings& settings) {
  fillStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);
  Output::instance().prepare(settings);
}

void print(const std::string& text) { Output::instance().print(text); }

void stopWaitingForReader() { Output::instance().stopWaiting(); }

void requestEnd() { kill(getpid(), SIGTERM); }

}  // namespace receiver
