#include "support/StandardStreams.h"

#include <unistd.h>

CaughtStream::CaughtStream(std::FILE* stream)
    : stream_(stream), file_(std::tmpfile()), original_(dup(fileno(stream))) {
  std::fflush(stream_);
  dup2(fileno(file_), fileno(stream_));
}

CaughtStream::~CaughtStream() {
  std::fflush(stream_);
  dup2(original_, fileno(stream_));
  close(original_);
  std::fclose(file_);
}

std::string CaughtStream::text() const {
  std::fflush(stream_);
  std::string text;
  char buffer[4096];
  ssize_t size = 0;
  while ((size = pread(fileno(file_), buffer, sizeof buffer, static_cast<off_t>(text.size()))) >
         0) {
    text.append(buffer, static_cast<std::size_t>(size));
  }
  return text;
}
