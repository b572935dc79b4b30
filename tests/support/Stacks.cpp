#include "support/Stacks.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

void printFile(const std::filesystem::path& path) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::fprintf(stderr, "  %s: %s\n", path.filename().c_str(), line.c_str());
  }
}

}  // namespace

// The accept threads block every signal, so that no handler of their own could do it.
void printStacks() {
  prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
  const std::string process = std::to_string(getpid());
  const pid_t debugger = fork();
  if (debugger == 0) {
    // A debugger may wait for ever itself, for a sanitizer's threads to stop.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    alarm(120);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execlp("gdb", "gdb", "-p", process.c_str(), "-batch", "-ex", "thread apply all backtrace",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(debugger, &status, 0);
  if (status == 0) return;
  // Without a debugger: where the kernel has them.
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::fprintf(stderr, "thread %s\n", task.path().filename().c_str());
    for (const char* const name : {"comm", "wchan", "syscall"}) printFile(task.path() / name);
  }
}
