#pragma once

#include <cstdio>
#include <string>

/// Catches what is written to a standard stream's descriptor while it lives.
class CaughtStream {
 public:
  explicit CaughtStream(std::FILE* stream);
  ~CaughtStream();
  CaughtStream(const CaughtStream&) = delete;
  CaughtStream& operator=(const CaughtStream&) = delete;

  /// Everything written so far.
  [[nodiscard]] std::string text() const;

 private:
  std::FILE* stream_;
  std::FILE* file_;
  int original_;
};
