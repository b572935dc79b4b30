// What the library prints, on streams of every kind.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ipc/Report.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A stream with a buffer of its own that holds more than a page.
class LargeStream {
 public:
  explicit LargeStream(int file) : buffer_(100'000), stream_(fdopen(file, "w")) {
    std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
  }
  ~LargeStream() { std::fclose(stream_); }
  LargeStream(const LargeStream&) = delete;
  LargeStream& operator=(const LargeStream&) = delete;

  std::FILE* operator*() { return stream_; }

 private:
  std::vector<char> buffer_;
  std::FILE* const stream_;
};

const std::string before(10'000, 'b');
constexpr const char* path = "/dev/shm/report.log";

TEST(Report, ComesBehindWhatALogFileIsStillToGet) {
  LargeStream stream(open(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
  std::fputs(before.c_str(), *stream);
  print(*stream, "after\n");
  EXPECT_EQ(contentOf(path), before + "after\n");
}

TEST(Report, ComesBehindWhatAnEmptyPipeIsStillToGet) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  LargeStream stream(ends[1]);
  std::fputs(before.c_str(), *stream);
  print(*stream, "after\n");
  std::string received(before.size() + 6, '\0');
  EXPECT_EQ(read(ends[0], received.data(), received.size()), static_cast<ssize_t>(received.size()));
  EXPECT_EQ(received, before + "after\n");
  close(ends[0]);
}

TEST(Report, OverwritesNothingInALogFileWhoseTimesNeedMoreThan32Bits) {
  LargeStream stream(open(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
  std::fputs("before\n", *stream);
  std::fflush(*stream);
  if (std::system("touch --date=2040-01-01 /dev/shm/report.log") != 0) GTEST_SKIP() << "no touch";
  print(*stream, "after\n");
  EXPECT_EQ(contentOf(path), "before\nafter\n");
}

TEST(Report, IsOneLineOfAllItsParts) {
  LargeStream stream(open(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
  printLine(*stream, {"one\n", "\r\ntwo", "", "three\n\n"});
  EXPECT_EQ(contentOf(path), "onetwothree\n");
}

TEST(Report, EndsALineThatIsTooLong) {
  LargeStream stream(open(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
  printLine(*stream, {before});
  const std::string printed = contentOf(path);
  EXPECT_EQ(printed.size(), 4096U);
  EXPECT_TRUE(printed.ends_with("b\n"));
}

// A terminal that says it has room may have it for a byte.
TEST(Report, DoesNotWaitForATerminalWithLittleRoom) {
  const Watchdog watchdog{std::chrono::seconds(60)};
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_EQ(grantpt(master) + unlockpt(master), 0);
  const int terminal = open(ptsname(master), O_WRONLY | O_NOCTTY | O_NONBLOCK);
  ASSERT_NE(terminal, -1);
  while (write(terminal, before.data(), before.size()) > 0 || write(terminal, "b", 1) > 0) {
  }
  char bytes[200];
  EXPECT_GT(read(master, bytes, sizeof bytes), 0);
  fcntl(terminal, F_SETFL, 0);
  LargeStream stream(terminal);
  std::fputs(before.c_str(), *stream);
  print(*stream, "after\n");
  __fpurge(*stream);
  close(master);
}

TEST(Report, ToAReaderThatHasGoneEndsNobody) {
  EXPECT_EXIT(
      {
        for (const bool isPipe : {true, false}) {
          int ends[2];
          if ((isPipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) != 0) _exit(1);
          close(ends[0]);
          std::FILE* const stream = fdopen(ends[1], "w");
          print(stream, "nobody\n");
          std::fputs("of the host's", stream);
          print(stream, "nobody\n");
        }
        sigset_t pending;
        sigpending(&pending);
        _exit(sigismember(&pending, SIGPIPE));
      },
      testing::ExitedWithCode(0), "");
}

TEST(Report, ToAClosedFileIsDropped) {
  LargeStream stream(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const int number = fileno(*stream);
  close(number);
  print(*stream, "nobody\n");
  // The stream closes what it has at its end.
  EXPECT_EQ(open("/dev/null", O_WRONLY | O_CLOEXEC), number);
}

}  // namespace
}  // namespace quillwork
