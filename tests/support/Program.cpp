#include "support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

namespace {

std::string contents(int file) {
  std::string text;
  char buffer[65536];
  ssize_t size = 0;
  while ((size = pread(file, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer, static_cast<std::size_t>(size));
  }
  return text;
}

}  // namespace

std::string hostProgram(const std::string& path) {
  const char* const build = std::getenv("QUILLWORK_HOST_BUILD");
  return std::string(build != nullptr ? build : BUILD) + "/" + path;
}

Program::Program(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& launcher)
    : output_(memfd_create("output", MFD_CLOEXEC)), errors_(memfd_create("errors", MFD_CLOEXEC)) {
  std::vector<std::string> all = launcher;
  std::istringstream emulator(EMULATOR);
  for (std::string word; emulator >> word;) all.push_back(word);
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& argument : all) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  int input[2] = {};
  EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
  input_ = input[1];
  process_ = fork();
  if (process_ != 0) {
    close(input[0]);
    return;
  }
  dup2(input[0], STDIN_FILENO);
  dup2(output_, STDOUT_FILENO);
  dup2(errors_, STDERR_FILENO);
  setenv("LSAN_OPTIONS", "suppressions=" LEAKS_OF_OTHERS ":print_suppressions=0", 0);
  execvp(pointers[0], pointers.data());
  _exit(127);
}

Program::~Program() {
  if (!hasEnded()) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(input_);
  close(output_);
  close(errors_);
}

bool Program::hasEnded() {
  if (status_ != -1) return true;
  int status = 0;
  if (waitpid(process_, &status, WNOHANG) == 0) return false;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

bool Program::awaitOutput(const std::string& text) {
  while (contents(output_).find(text) == std::string::npos) {
    if (hasEnded()) return contents(output_).find(text) != std::string::npos;
    std::this_thread::yield();
  }
  return true;
}

void Program::give(const std::string& bytes) const {
  EXPECT_EQ(write(input_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

void Program::signal(int number) const { kill(process_, number); }

int Program::wait() {
  while (!hasEnded()) std::this_thread::yield();
  return status_;
}

std::string Program::output() const { return contents(output_); }

std::string Program::errors() const { return contents(errors_); }

void Program::forgetOutput() const {
  // The program goes on writing where it was, behind a hole.
  EXPECT_EQ(ftruncate(output_, 0), 0);
  EXPECT_EQ(ftruncate(errors_, 0), 0);
}
