#include "cli/Recording.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "cli/Command.h"
#include "cli/EndingSignals.h"

namespace quillwork::cli {
namespace {

constexpr std::string_view signature = "quillwork-trace 2\n";
/// Without the ends of connections.
constexpr std::string_view firstSignature = "quillwork-trace 1\n";
static_assert(signature.size() == firstSignature.size());

constexpr std::uint32_t maxChunk = 1U << 20U;
/// Differences and sums of times before it fit into 64 bits.
constexpr std::chrono::nanoseconds endOfTime =
    std::chrono::sys_days(std::chrono::year{2201} / 1 / 1).time_since_epoch();

[[noreturn]] void refuse(const std::string& path) {
  throw Refusal(path + ": " + std::strerror(errno));
}

[[noreturn]] void refuseCut(const std::string& path) { throw Refusal(path + ": cut short"); }

bool isDamaged(const TraceChunk& chunk) {
  return chunk.channel > TraceChannel::sectionFilter || chunk.event > TraceEvent::endedByTrace ||
         chunk.size > maxChunk || chunk.time < 0 || chunk.time >= endOfTime.count();
}

}  // namespace

Recording::Recording(std::string path) : path_(std::move(path)), file_(path_, std::ios::binary) {
  if (!(file_ << signature << std::flush)) refuse(path_);
}

void Recording::write(const TraceChunk& chunk, std::string_view bytes) {
  if (!file_.is_open()) return;
  file_.write(reinterpret_cast<const char*>(&chunk), sizeof chunk);
  file_ << bytes << std::flush;
  if (file_) return;
  say("{}: cannot be written any more", path_);
  file_.close();
}

void Recording::read(const std::string& path, const Take& take) {
  std::ifstream file(path, std::ios::binary);
  if (!file) refuse(path);
  std::string begin(signature.size(), '\0');
  file.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  if (begin != signature && begin != firstSignature) {
    throw Refusal(path + ": no recording of a trace");
  }
  TraceChunk chunk{};
  std::string bytes;
  while (file.read(reinterpret_cast<char*>(&chunk), sizeof chunk)) {
    if (isDamaged(chunk)) throw Refusal(path + ": a damaged recording");
    bytes.resize(chunk.size);
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) refuseCut(path);
    take(chunk, bytes);
  }
  if (file.gcount() != 0) refuseCut(path);
}

}  // namespace quillwork::cli
