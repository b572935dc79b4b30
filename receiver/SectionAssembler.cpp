#include "receiver/SectionAssembler.h"

#include <algorithm>
#include <utility>

#include "receiver/bitstream.h"

namespace receiver {
namespace {

constexpr std::size_t headerSize = 3;
constexpr std::size_t maxSection = 4096;
constexpr std::uint8_t stuffing = 0xff;

/// The bytes of the section whose header this is.
std::size_t sectionSize(const Section& section) {
  return headerSize + psi_get_length(section.data());
}

/// Whether the section ends with a CRC: those of the long form, and the time offset table.
bool hasCrc(const Section& section) {
  return psi_get_syntax(section.data()) || psi_get_tableid(section.data()) == TOT_TABLE_ID;
}

bool isValid(const Section& section) {
  if (!hasCrc(section)) return true;
  const std::size_t least = psi_get_syntax(section.data()) ? PSI_HEADER_SIZE_SYNTAX1 : headerSize;
  return section.size() >= least + PSI_CRC_SIZE && psi_check_crc(section.data());
}

}  // namespace

void SectionAssembler::reset() {
  collecting_ = false;
  section_.clear();
  lastCounter_ = -1;
}

SectionAssembler::Continuity SectionAssembler::follow(Packet packet) {
  const int counter = packet[3] & 0x0f;
  const bool adaptation = (packet[3] & 0x20) != 0;
  const bool announced = adaptation && packet[4] > 0 && (packet[5] & 0x80) != 0;
  const int before = std::exchange(lastCounter_, counter);
  if (before == -1 || announced || counter == ((before + 1) & 0x0f)) return Continuity::next;
  return counter == before ? Continuity::repeated : Continuity::broken;
}

void SectionAssembler::feed(Packet packet, StreamErrors& errors, const Sink& sink) {
  const bool hasPayload = (packet[3] & 0x10) != 0;
  const bool scrambled = (packet[3] & 0xc0) != 0;
  if (!hasPayload || scrambled) return;
  switch (follow(packet)) {
    case Continuity::next:
      break;
    case Continuity::repeated:
      return;
    case Continuity::broken:
      ++errors.lostPackets;
      collecting_ = false;
      break;
  }
  const bool adaptation = (packet[3] & 0x20) != 0;
  const std::size_t begin = adaptation ? 5U + packet[4] : 4U;
  if (begin >= packetSize) return;
  std::span<const std::uint8_t> payload = packet.subspan(begin);
  const bool unitStart = (packet[1] & 0x40) != 0;
  if (!unitStart) {
    if (collecting_) append(payload, errors, sink);
    return;
  }
  const std::size_t pointer = payload[0];
  payload = payload.subspan(1);
  if (pointer > payload.size()) {
    ++errors.badSections;
    collecting_ = false;
    return;
  }
  if (collecting_) append(payload.first(pointer), errors, sink);
  // What has not ended by now never will.
  section_.clear();
  collecting_ = true;
  append(payload.subspan(pointer), errors, sink);
}

void SectionAssembler::append(std::span<const std::uint8_t> bytes, StreamErrors& errors,
                              const Sink& sink) {
  while (collecting_ && !bytes.empty()) {
    if (section_.empty() && bytes[0] == stuffing) {
      collecting_ = false;
      return;
    }
    const std::size_t wanted = section_.size() < headerSize ? headerSize : sectionSize(section_);
    const std::size_t taken = std::min(wanted - section_.size(), bytes.size());
    section_.insert(section_.end(), bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(taken));
    bytes = bytes.subspan(taken);
    if (section_.size() < headerSize) return;
    if (sectionSize(section_) > maxSection) {
      ++errors.badSections;
      collecting_ = false;
    } else if (section_.size() == sectionSize(section_)) {
      finish(errors, sink);
    }
  }
}

void SectionAssembler::finish(StreamErrors& errors, const Sink& sink) {
  if (isValid(section_)) {
    sink(section_);
  } else {
    ++errors.badSections;
  }
  section_.clear();
}

}  // namespace receiver
