#include "bench/Server.h"

#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "bench/Host.h"
#include "bench/floor.h"
#include "protocol/message.h"
#include "support/OwnSharedMemory.h"
#include "support/UnixSocket.h"

namespace bench {
namespace {

/// Of the floor that a process is: there may be several.
std::string floorPath(pid_t process, const char* channel) {
  return "/dev/shm/quillwork-floor-" + std::to_string(process) + channel + ".socket";
}
std::string floorControlPath(pid_t process) { return floorPath(process, ""); }
std::string floorSectionPath(pid_t process) { return floorPath(process, "demux"); }

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

using Pipe = std::array<int, 2>;

Pipe makePipe() {
  Pipe ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
  return ends;
}

/// What a server is told: 0 to notify, or for how many requests to prepare, which it answers.
struct Channel {
  int words;
  int answers;
};

void answer(const Channel& channel, char byte) {
  if (write(channel.answers, &byte, 1) != 1) _exit(1);
}

template <class Prepare, class Notify>
[[noreturn]] void obey(const Channel& channel, Prepare prepare, Notify notify) {
  answer(channel, 'r');
  for (std::size_t word = 0; read(channel.words, &word, sizeof word) == sizeof word;) {
    if (word == 0) {
      notify(stamp());
    } else {
      prepare(word);
      answer(channel, 'p');
    }
  }
  _exit(0);
}

[[noreturn]] void runFloor(const Shape& shape, const Channel& channel) {
  const int control = listenAt(floorControlPath(getpid()).c_str());
  const int sections = listenAt(floorSectionPath(getpid()).c_str());
  // The thread that notifies sends to whoever is connected.
  static int client = -1;
  std::thread([=, &shape] { serveControl(control, shape, client); }).detach();
  std::thread([=, &shape] { serveSections(sections, shape); }).detach();
  obey(
      channel, [](std::size_t) {}, [](std::int32_t player) { sendEndOfMedia(client, player); });
}

[[noreturn]] void runLibrary(const Shape& shape, const Channel& channel) {
  // As a process that has ever freed something large: its freed memory stays with it, where a young
  // one gives pages of lists back, only to take them anew.
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  const Host host(shape);
  obey(channel, Host::prepare, [&](std::int32_t player) { host.notify(player); });
}

}  // namespace

Server::Server(Kind kind, const Shape& shape, Placement placement) {
  const Pipe words = makePipe();
  const Pipe answers = makePipe();
  process_ = fork();
  if (process_ == -1) fail("fork");
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (kind == Kind::library) takeOwnSharedMemory();
    pinTo(placement == Placement::one ? clientProcessor : clientProcessor + 1);
    close(words[1]);
    close(answers[0]);
    (kind == Kind::floor ? runFloor : runLibrary)(shape, {words[0], answers[1]});
  }
  close(words[0]);
  close(answers[1]);
  words_ = words[1];
  answers_ = answers[0];
  awaitAnswer();
  // Seen from here; the floor has this process's own.
  const std::string root = "/proc/" + std::to_string(process_) + "/root";
  const bool isFloor = kind == Kind::floor;
  controlPath_ = isFloor ? floorControlPath(process_) : root + "/dev/shm/ipc.socket";
  sectionPath_ = isFloor ? floorSectionPath(process_) : root + "/dev/shm/ipcdemux.socket";
}

Server::~Server() {
  close(words_);
  close(answers_);
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  // The library's are in a directory that has gone with the process.
  unlink(controlPath_.c_str());
  unlink(sectionPath_.c_str());
}

void Server::prepare(std::size_t requests) const {
  say(requests);
  awaitAnswer();
}

void Server::say(std::size_t word) const {
  if (write(words_, &word, sizeof word) != sizeof word) fail("write");
}

void Server::awaitAnswer() const {
  char byte = 0;
  if (read(answers_, &byte, 1) != 1) throw std::runtime_error("a server has ended");
}

std::int32_t stamp() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::int32_t>(std::chrono::nanoseconds(now).count() & 0x7fffffff);
}

void pinTo(unsigned processor) {
  static const cpu_set_t allowed = [] {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof set, &set);
    return set;
  }();
  if (CPU_COUNT(&allowed) < 2) return;
  unsigned number = 0;
  for (unsigned left = processor;; ++number) {
    if (CPU_ISSET(number, &allowed) && left-- == 0) break;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(number, &one);
  sched_setaffinity(0, sizeof one, &one);
}

int connectTo(const std::string& path) {
  const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connection == -1 || ::connectTo(connection, path.c_str()) != 0) fail(path);
  return connection;
}

}  // namespace bench
