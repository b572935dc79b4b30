#include "receiver/Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace receiver {
namespace {

FILE*& answers() {
  static FILE* file = stdout;
  return file;
}

void printOn(FILE* file, const std::string& text) {
  const bool isWritten =
      std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
  if (isWritten) return;
  const int error = errno;
  std::clearerr(file);
  if (error == EPIPE) requestEnd();
}

}  // namespace

void prepareOutput(bool isQuiet) {
  // What is opened next would otherwise get the number, and be printed on.
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
  std::signal(SIGPIPE, SIG_IGN);
  if (!isQuiet) return;
  const int kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (kept == -1 || nowhere == -1) return;
  // The library prints, too.
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  if (FILE* const file = fdopen(kept, "w")) answers() = file;
}

void print(const std::string& text) { printOn(stdout, text); }

void printAnswer(const std::string& text) { printOn(answers(), text); }

void requestEnd() { kill(getpid(), SIGTERM); }

}  // namespace receiver
