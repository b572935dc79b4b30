#include "receiver/Source.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

constexpr std::size_t portion = 65536;
/// So many bytes without a packet are no stream.
constexpr std::uint64_t mostWithoutPacket = std::uint64_t{1} << 16U;

class DescriptorInput : public ByteInput {
 public:
  explicit DescriptorInput(int descriptor)
      : descriptor_(descriptor), interrupted_(eventfd(0, EFD_CLOEXEC)) {}
  ~DescriptorInput() override {
    close(descriptor_);
    close(interrupted_);
  }

  Arrival read(PacketFramer& framer, std::chrono::milliseconds time) override;
  bool isReady() override;
  bool restart() override { return false; }
  void interrupt() override { eventfd_write(interrupted_, 1); }
  [[nodiscard]] bool keepsPace() const override { return false; }

 private:
  const int descriptor_;
  /// Readable once interrupt() was called.
  const int interrupted_;
};

ByteInput::Arrival DescriptorInput::read(PacketFramer& framer, std::chrono::milliseconds time) {
  pollfd inputs[] = {{interrupted_, POLLIN, 0}, {descriptor_, POLLIN, 0}};
  const int ready = poll(inputs, std::size(inputs), static_cast<int>(time.count()));
  if (ready == 0) return Arrival::nothing;
  if (ready == -1 || inputs[0].revents != 0) return Arrival::end;
  const std::span<std::uint8_t> room = framer.room(portion);
  const ssize_t size = ::read(descriptor_, room.data(), room.size());
  // A device of which too much was not read in time goes on behind that.
  const bool isOver = size == -1 && errno != EINTR && errno != EAGAIN && errno != EOVERFLOW;
  if (size == 0 || isOver) return Arrival::end;
  if (size > 0) framer.add(static_cast<std::size_t>(size));
  return Arrival::bytes;
}

bool DescriptorInput::isReady() {
  pollfd input{descriptor_, POLLIN, 0};
  return poll(&input, 1, 0) > 0;
}

}  // namespace

bool FileSource::rewind() {
  file_.rewind();
  return true;
}

LiveSource::LiveSource(std::string name, std::unique_ptr<ByteInput> input,
                       std::chrono::milliseconds silence)
    : name_(std::move(name)), input_(std::move(input)), silence_(silence) {}

std::optional<Packet> LiveSource::next() {
  for (bool isEnd = false;;) {
    if (auto packet = framer_.next()) return packet;
    if (!framer_.hasFound() && (isEnd || framer_.position() > mostWithoutPacket)) {
      sayWhatIsNoStream();
    }
    if (isEnd) return std::nullopt;
    switch (input_->read(framer_, silence_)) {
      case ByteInput::Arrival::bytes:
        keepBeginning();
        if (std::exchange(isSilent_, false)) {
          complain("{}: the stream goes on", name_);
        }
        break;
      case ByteInput::Arrival::nothing:
        if (!std::exchange(isSilent_, true)) {
          complain("{}: nothing has arrived for {:.1f} s", name_,
                   std::chrono::duration<double>(silence_).count());
        }
        break;
      case ByteInput::Arrival::end:
        framer_.end();
        isEnd = true;
        break;
    }
  }
}

/// Keeps what shows of which kind bytes without packets are.
void LiveSource::keepBeginning() {
  constexpr std::size_t most = 4096;
  if (!beginning_.empty()) return;
  const std::span<const std::uint8_t> bytes = framer_.unread();
  beginning_.assign(bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), most)));
}

bool LiveSource::isReady() { return framer_.left() > packetSize || input_->isReady(); }

bool LiveSource::rewind() {
  if (!input_->restart()) return false;
  framer_.reset();
  beginning_.clear();
  hasComplained_ = false;
  return true;
}

void LiveSource::sayWhatIsNoStream() {
  if (beginning_.empty() || std::exchange(hasComplained_, true)) return;
  complain("{}: what arrives is no MPEG transport stream of 188, 192 or 204-byte packets: {}",
           name_, describeBytes(beginning_));
}

std::unique_ptr<ByteInput> readDescriptor(int descriptor) {
  return std::make_unique<DescriptorInput>(descriptor);
}

bool isUrl(const std::string& name) {
  const std::size_t end = name.find("://");
  return end != std::string::npos && end > 0 &&
         name.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == end;
}

std::unique_ptr<Source> openSource(const std::string& name) {
  struct stat status {};
  const bool isInput = name == "-";
  if (!isInput &&
      (stat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
    return std::make_unique<FileSource>(name);
  }
  // A pipe is not waited for before somebody writes to it.
  const int input = isInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                            : open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (input == -1) {
    throw StreamError((isInput ? "standard input" : name) + ": " + std::strerror(errno));
  }
  return std::make_unique<LiveSource>(isInput ? "standard input" : name, readDescriptor(input));
}

}  // namespace receiver
