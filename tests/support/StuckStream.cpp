#include "support/StuckStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace {

/// A terminal's two sides, its output stopped.
std::array<int, 2> stoppedTerminal() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_GE(master, 0);
  EXPECT_EQ(grantpt(master), 0);
  EXPECT_EQ(unlockpt(master), 0);
  char name[128] = {};
  EXPECT_EQ(ptsname_r(master, name, sizeof name), 0);
  const int terminal = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_GE(terminal, 0);
  EXPECT_EQ(tcflow(terminal, TCOOFF), 0);
  return {master, terminal};
}

/// The side that is read and the side that is written.
std::array<int, 2> pairOf(Stuck kind) {
  std::array<int, 2> ends{-1, -1};
  if (kind == Stuck::stoppedTerminal) return stoppedTerminal();
  if (kind == Stuck::fullSocket) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  } else {
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  }
  return ends;
}

void fill(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
  const char bytes[4096] = {};
  for (std::size_t size = sizeof bytes; size > 0; size /= 2) {
    while (write(descriptor, bytes, size) > 0) {
    }
  }
  fcntl(descriptor, F_SETFL, flags);
}

}  // namespace

StuckStream::StuckStream(std::FILE* stream, Stuck kind)
    : stream_(stream), kind_(kind), original_(dup(fileno(stream))) {
  std::fflush(stream_);
  const auto [reader, writer] = pairOf(kind);
  fill(writer);
  reader_ = reader;
  dup2(writer, fileno(stream_));
  close(writer);
}

StuckStream::~StuckStream() {
  release();
  std::fflush(stream_);
  dup2(original_, fileno(stream_));
  close(original_);
  // The reader has come to the end: no process holds the other side any more.
  drain_.join();
  close(reader_);
}

void StuckStream::release() {
  if (drain_.joinable()) return;
  if (kind_ == Stuck::stoppedTerminal) tcflow(fileno(stream_), TCOON);
  drain_ = std::thread([this] {
    char bytes[4096];
    while (read(reader_, bytes, sizeof bytes) > 0) {
    }
  });
}

int StuckStream::flags() const { return fcntl(fileno(stream_), F_GETFL); }
