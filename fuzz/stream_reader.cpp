// A transport stream, read by the receiver: as raw packets, or as sections with the lengths and
// CRCs that let them through to the tables' readers.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "receiver/DataBroadcast.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamFile.h"
#include "receiver/StreamPlayer.h"
#include "receiver/facades/SectionFilter.h"

namespace {

using namespace receiver;

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint16_t, 10> pids = {0x00, 0x01, 0x10, 0x11, 0x12,
                                                0x14, 0x27, 0x64, 0x65, 0x1fff};

std::uint32_t crcOf(const Bytes& bytes) {
  std::uint32_t crc = 0xffffffff;
  for (const std::uint8_t byte : bytes) {
    crc ^= static_cast<std::uint32_t>(byte) << 24U;
    for (int bit = 0; bit < 8; ++bit) crc = (crc << 1U) ^ ((crc >> 31U) * 0x04c11db7U);
  }
  return crc;
}

/// A section of a table: the header's syntax bit and length, and the CRC, are as they should be.
Bytes takeSection(Input& input) {
  Bytes section(3);
  section[0] = input.take<std::uint8_t>();
  const std::size_t size = input.take<std::uint16_t>() % 4090;
  const std::string_view body = input.takeBytes(size);
  section.insert(section.end(), body.begin(), body.end());
  const std::size_t length = section.size() - 3 + 4;
  section[1] = static_cast<std::uint8_t>(0xb0U | length >> 8U);
  section[2] = static_cast<std::uint8_t>(length);
  const std::uint32_t crc = crcOf(section);
  for (int shift = 24; shift >= 0; shift -= 8) {
    section.push_back(static_cast<std::uint8_t>(crc >> static_cast<unsigned>(shift)));
  }
  return section;
}

void appendPackets(Bytes& stream, std::uint16_t pid, std::uint8_t& counter, const Bytes& section) {
  Bytes unit(1);  // the pointer field
  unit.insert(unit.end(), section.begin(), section.end());
  for (std::size_t begin = 0; begin < unit.size(); begin += packetSize - 4) {
    Bytes packet(packetSize, 0xff);
    packet[0] = 0x47;
    packet[1] = static_cast<std::uint8_t>((begin == 0 ? 0x40U : 0U) | pid >> 8U);
    packet[2] = static_cast<std::uint8_t>(pid);
    packet[3] = static_cast<std::uint8_t>(0x10U | (counter++ & 15U));
    const std::size_t end = std::min(unit.size(), begin + packetSize - 4);
    std::copy(unit.begin() + static_cast<std::ptrdiff_t>(begin),
              unit.begin() + static_cast<std::ptrdiff_t>(end), packet.begin() + 4);
    stream.insert(stream.end(), packet.begin(), packet.end());
  }
}

Bytes takeStream(Input& input) {
  Bytes stream;
  std::array<std::uint8_t, pids.size()> counters{};
  while (!input.isAtEnd() && stream.size() < 200'000) {
    const std::size_t kind = input.takeBelow(16);
    const std::size_t which = input.takeBelow(pids.size());
    if (kind < 13) {
      appendPackets(stream, pids[which], counters[which], takeSection(input));
      continue;
    }
    // A packet with any header, and what follows it in the input.
    Bytes packet(packetSize, 0xff);
    const std::string_view bytes = input.takeBytes(kind == 13 ? 8 : packetSize);
    std::copy(bytes.begin(), bytes.end(), packet.begin());
    if (kind != 15) {
      packet[0] = 0x47;
      packet[1] = static_cast<std::uint8_t>((packet[1] & 0xe0U) | pids[which] >> 8U);
      packet[2] = static_cast<std::uint8_t>(pids[which]);
    }
    stream.insert(stream.end(), packet.begin(), packet.end());
  }
  return stream;
}

/// The absent one where the system has no module for the table.
std::optional<CharacterTable> tableOrDefault(const std::string& name) try {
  return CharacterTable::named(name);
} catch (const std::invalid_argument&) {
  return std::nullopt;
}

void readEverything(const ServiceInformation& information) {
  static_cast<void>(information.transportStreamId());
  static_cast<void>(information.patVersion());
  for (const Service& service : information.services()) {
    static_cast<void>(information.serviceDescriptors(service.id));
  }
  static_cast<void>(information.events());
  static_cast<void>(information.programMaps());
  static_cast<void>(information.networks());
  static_cast<void>(information.bouquets());
  static_cast<void>(information.caSystems());
  static_cast<void>(information.currentService());
  static_cast<void>(information.broadcastTime());
  static_cast<void>(information.counters());
}

void setFilter(SectionFilter& filter, Input& input) {
  filter.setTimeOut(0);
  filter.setPid(pids[input.takeBelow(pids.size())]);
  if (input.takeBoolean()) filter.setTableId(input.take<std::uint8_t>());
  const auto bytes = [&] {
    const std::string_view taken = input.takeBytes(input.takeBelow(8));
    return std::vector<unsigned char>(taken.begin(), taken.end());
  };
  const std::size_t filters = input.takeBelow(16);
  const int offset = input.take<std::int8_t>();
  if ((filters & 1U) != 0) filter.setPositiveFilter(offset, bytes(), bytes());
  if ((filters & 2U) != 0) filter.setGreaterThanFilter(offset, bytes(), bytes());
  if ((filters & 4U) != 0) filter.setLessThanFilter(offset, bytes(), bytes());
  if ((filters & 8U) != 0) filter.setXorFilter(offset, bytes(), bytes(), bytes());
  filter.start();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool isRaw = input.takeBelow(8) == 0;
  std::optional<CharacterTable> table;
  switch (input.takeBelow(8)) {
    case 0:
      table = tableOrDefault("ISO-8859-15");
      break;
    case 1:
      table = tableOrDefault("ARIB");
      break;
    default:
      break;
  }
  Input filters(data, size);
  Bytes stream;
  if (isRaw) {
    const std::string_view rest = input.takeRest();
    stream.assign(rest.begin(), rest.end());
  } else {
    stream = takeStream(input);
  }
  const int file = memfd_create("stream", MFD_CLOEXEC);
  if (file == -1) fail("cannot make a file");
  if (write(file, stream.data(), stream.size()) != static_cast<ssize_t>(stream.size())) {
    fail("cannot write a file");
  }
  try {
    StreamFile opened("/proc/self/fd/" + std::to_string(file));
    ServiceInformation information(table);
    DataBroadcast broadcast(information);
    broadcast.onTree([](const CarouselPlace&, const std::shared_ptr<const CarouselTree>&) {});
    broadcast.onEvent([](const std::string&, const StreamEvent&) {});
    broadcast.want({101, 65});
    StreamPlayer player(nullptr, {});
    SectionFilter filter(player, false);
    setFilter(filter, filters);
    std::size_t index = 0;
    while (const auto packet = opened.next()) {
      information.take(*packet);
      broadcast.take(*packet);
      filter.take(*packet);
      if (++index % 32 == 0) readEverything(information);
    }
    readEverything(information);
    while (!filter.readSection().empty()) {
    }
  } catch (const StreamError&) {
    // Said in one line and refused.
  }
  close(file);
  return 0;
}
