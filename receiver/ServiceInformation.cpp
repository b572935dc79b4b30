#include "receiver/ServiceInformation.h"

#include <algorithm>
#include <cstring>

#include "receiver/bitstream.h"

namespace receiver {
namespace {

constexpr std::uint16_t eitLowPid = 0x27;  // Where ISDB repeats the EIT for its handheld service.
constexpr std::uint16_t basicPids[] = {PAT_PID, CAT_PID, NIT_PID,  SDT_PID,
                                       EIT_PID, TDT_PID, eitLowPid};
constexpr std::uint8_t isdbTerrestrialDelivery = 0xfa;
constexpr std::uint8_t isdbTransportStream = 0xcd;
constexpr std::uint8_t privateDataSpecifier = 0x5f;
constexpr std::uint8_t logicalChannel = 0x83;

std::uint16_t uint16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

std::uint32_t uint32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(uint16(bytes)) << 16U | uint16(bytes + 2);
}

/// Two decimal digits in a byte, nothing where they are none.
std::optional<int> decimal(unsigned byte) {
  const unsigned high = byte >> 4U & 15U;
  const unsigned low = byte & 15U;
  if (high > 9 || low > 9) return std::nullopt;
  return static_cast<int>(high * 10 + low);
}

/// Decimal digits in four bytes, 0 where they are none.
double decimals(const std::uint8_t* bytes) {
  double value = 0;
  for (int index = 0; index < 4; ++index) {
    const auto digits = decimal(bytes[index]);
    if (!digits) return 0;
    value = value * 100 + *digits;
  }
  return value;
}

/// Hours, minutes and seconds in six decimal digits, as seconds; -1 where they are none, as in the
/// undefined duration.
int secondsOf(std::uint32_t digits) {
  const auto hours = decimal(digits >> 16U & 0xffU);
  const auto minutes = decimal(digits >> 8U & 0xffU);
  const auto seconds = decimal(digits & 0xffU);
  if (!hours || !minutes || !seconds) return -1;
  return *hours * 3600 + *minutes * 60 + *seconds;
}

/// A date and time (ETSI EN 300 468, annex C), -1 for one that is undefined or none. The day's
/// number of 16 bits wraps in 2038: a count from before 1970 means 65,536 days more.
std::int64_t timeOf(std::uint64_t broadcast) {
  constexpr std::int64_t dayOf1970 = 40587;
  constexpr int secondsOfDay = 86400;
  const int seconds = secondsOf(static_cast<std::uint32_t>(broadcast & 0xffffff));
  if (seconds < 0 || seconds >= secondsOfDay) return -1;
  auto day = static_cast<std::int64_t>(broadcast >> 24U);
  if (day < dayOf1970) day += 65536;
  return (day - dayOf1970) * secondsOfDay + seconds;
}

/// The descriptors of a loop, as far as they fit into it.
Descriptors readLoop(const std::uint8_t* loop, std::size_t length) {
  Descriptors descriptors;
  while (length >= 2 && length >= 2U + loop[1]) {
    const std::size_t size = 2U + loop[1];
    descriptors.push_back({loop[0], {loop + 2, loop + size}});
    loop += size;
    length -= size;
  }
  return descriptors;
}

/// A loop behind its 12-bit length.
Descriptors readLoop(const std::uint8_t* lengthField) {
  return readLoop(lengthField + 2, uint16(lengthField) & 0xfffU);
}

/// A descriptor in the form that biTStream's getters take: header and bytes. Behind them zero
/// bytes: its validators follow the lengths inside a descriptor, at most 255 bytes from its last
/// one, before they compare them with the descriptor's own.
std::vector<std::uint8_t> whole(const Descriptor& descriptor) {
  std::vector<std::uint8_t> bytes(DESC_HEADER_SIZE + descriptor.data.size() + 256);
  desc_set_tag(bytes.data(), descriptor.tag);
  desc_set_length(bytes.data(), static_cast<std::uint8_t>(descriptor.data.size()));
  std::copy(descriptor.data.begin(), descriptor.data.end(), bytes.begin() + DESC_HEADER_SIZE);
  return bytes;
}

std::set<int> caSystemsOf(const Descriptors& descriptors) {
  std::set<int> systems;
  for (const Descriptor& descriptor : descriptors) {
    if (descriptor.tag != 0x09) continue;
    const auto bytes = whole(descriptor);
    if (desc09_validate(bytes.data())) systems.insert(desc09_get_sysid(bytes.data()));
  }
  return systems;
}

/// Delivery and frequency of a delivery system descriptor (6.2.13, ARIB STD-B10 6.2.31).
void readDelivery(const Descriptor& descriptor, TransportStream& stream) {
  const auto bytes = whole(descriptor);
  const std::uint8_t* const data = bytes.data() + 2;
  const std::size_t size = descriptor.data.size();
  if (descriptor.tag == 0x43 && desc43_validate(bytes.data())) {
    stream.delivery = Delivery::satellite;
    stream.frequency = decimals(data) / 100;
  } else if (descriptor.tag == 0x44 && desc44_validate(bytes.data())) {
    stream.delivery = Delivery::cable;
    stream.frequency = decimals(data) / 10000;
  } else if (descriptor.tag == 0x5a && desc5a_validate(bytes.data())) {
    stream.delivery = Delivery::terrestrial;
    stream.frequency = uint32(data) / 100000.0;
  } else if (descriptor.tag == isdbTerrestrialDelivery && size >= 4) {
    stream.delivery = Delivery::terrestrial;
    stream.frequency = uint16(data + 2) / 7.0;
  } else if (descriptor.tag == 0x7f && size >= 1 && data[0] == 0x04) {
    stream.delivery = Delivery::terrestrial;  // T2; its frequencies are cell by cell.
  }
}

/// The bits of a logical channel number in the descriptor 0x83, whose meaning the private data
/// specifier before it gives; 0 where it is no list of them. Without one the descriptor has no
/// meaning by the standard, but on air it is the list of EICTA's receivers (E-Book), as it is after
/// the specifiers that regulators have: 0x2000 and the country's number, Australia's and New
/// Zealand's.
std::uint16_t channelNumberBits(std::optional<std::uint32_t> specifier) {
  constexpr std::uint16_t eicta = 0x3ff;
  constexpr std::uint16_t norDig = 0x3fff;
  if (!specifier || *specifier == 0x28 || *specifier == 0x37) return eicta;
  if (*specifier == 0x29) return norDig;
  const bool isRegulator = (*specifier >= 0x2000 && *specifier <= 0x23ff) ||
                           (*specifier >= 0x3200 && *specifier <= 0x320f);
  return isRegulator ? eicta : 0;
}

void readChannelNumbers(TransportStream& stream) {
  std::optional<std::uint32_t> specifier;
  for (const Descriptor& descriptor : stream.descriptors) {
    const auto& data = descriptor.data;
    if (descriptor.tag == privateDataSpecifier && data.size() >= 4) {
      specifier = uint32(data.data());
    } else if (descriptor.tag == logicalChannel) {
      const std::uint16_t bits = channelNumberBits(specifier);
      for (std::size_t index = 0; bits != 0 && index + 4 <= data.size(); index += 4) {
        stream.channelNumbers[uint16(&data[index])] = uint16(&data[index + 2]) & bits;
      }
    } else if (descriptor.tag == isdbTransportStream && !data.empty()) {
      // The key on the remote control, for all services of the stream.
      for (const int service : stream.services) stream.channelNumbers.try_emplace(service, data[0]);
    }
  }
}

bool isEit(std::uint8_t tableId) { return tableId >= 0x4e && tableId <= 0x6f; }

bool isSdt(std::uint8_t tableId) {
  return tableId == SDT_TABLE_ID_ACTUAL || tableId == SDT_TABLE_ID_OTHER;
}

/// Whether the table speaks of the received stream itself.
bool isEitActual(std::uint8_t tableId) {
  return tableId == EIT_TABLE_ID_PF_ACTUAL || (tableId >= 0x50 && tableId <= 0x5f);
}

/// Whether the section is one that its reader below can read to its end. Only those of the EIT may
/// have more than 1,024 bytes, so that biTStream's indices of eight bits suffice for all others.
bool isReadable(const Section& section) {
  constexpr std::size_t usualLimit = PSI_HEADER_SIZE + PSI_MAX_SIZE;
  const std::uint8_t* const data = section.data();
  const std::uint8_t tableId = psi_get_tableid(data);
  if (isEit(tableId)) return section.size() >= EIT_HEADER_SIZE + PSI_CRC_SIZE && eit_validate(data);
  if (section.size() < PAT_HEADER_SIZE + PSI_CRC_SIZE || section.size() > usualLimit) return false;
  switch (tableId) {
    case PAT_TABLE_ID:
      return pat_validate(data);
    case CAT_TABLE_ID:
      return cat_validate(data);
    case PMT_TABLE_ID:
      return pmt_validate(data);
    case NIT_TABLE_ID_ACTUAL:
    case NIT_TABLE_ID_OTHER:
      return nit_validate(data);
    case BAT_TABLE_ID:
      return bat_validate(data);
    case SDT_TABLE_ID_ACTUAL:
    case SDT_TABLE_ID_OTHER:
      return sdt_validate(data);
    default:
      return false;
  }
}

TransportStream readTransportStream(const std::uint8_t* loop) {
  TransportStream stream{};
  stream.id = nitn_get_tsid(loop);
  stream.originalNetwork = nitn_get_onid(loop);
  stream.descriptors = readLoop(loop + 4);
  for (const Descriptor& descriptor : stream.descriptors) {
    readDelivery(descriptor, stream);
    if (descriptor.tag == 0x41) {
      for (std::size_t index = 0; index + 3 <= descriptor.data.size(); index += 3) {
        stream.services.push_back(uint16(&descriptor.data[index]));
      }
    }
  }
  readChannelNumbers(stream);
  return stream;
}

/// Calls `visit` with each event of an EIT's section. Not by eit_get_event(), whose index has eight
/// bits: a section can hold 339 events.
template <class AnySection, class Visitor>
void forEachEntry(AnySection& section, Visitor&& visit) {
  auto* const end = section.data() + section.size() - PSI_CRC_SIZE;
  for (auto* entry = section.data() + EIT_HEADER_SIZE; entry < end;
       entry += EIT_EVENT_SIZE + eitn_get_desclength(entry)) {
    visit(entry);
  }
}

std::size_t countEvents(const Section& section) {
  std::size_t count = 0;
  forEachEntry(section, [&](const std::uint8_t*) { ++count; });
  return count;
}

/// What stands before the event's descriptors.
Event readEvent(Section& section, std::uint8_t* entry) {
  Event event{};
  event.tableId = psi_get_tableid(section.data());
  event.service = psi_get_tableidext(section.data());
  event.transportStream = eit_get_tsid(section.data());
  event.originalNetwork = eit_get_onid(section.data());
  event.section = psi_get_section(section.data());
  event.version = psi_get_version(section.data());
  event.id = eitn_get_event_id(entry);
  event.start = timeOf(eitn_get_start_time(entry));
  event.duration = secondsOf(eitn_get_duration_bcd(entry));
  event.runningStatus = eitn_get_running(entry);
  event.isScrambled = eitn_get_ca(entry);
  return event;
}

}  // namespace

bool Component::isVideo() const {
  constexpr int types[] = {0x01, 0x02, 0x10, 0x1b, 0x24};
  return std::ranges::find(types, streamType) != std::end(types);
}

bool Component::isAudio() const {
  constexpr int types[] = {0x03, 0x04, 0x0f, 0x11, 0x81};
  constexpr std::uint8_t privatePackets = 0x06;
  constexpr int codings[] = {0x6a, 0x7a, 0x7b, 0x7c};
  if (std::ranges::find(types, streamType) != std::end(types)) return true;
  return streamType == privatePackets &&
         std::ranges::any_of(descriptors, [&](const Descriptor& descriptor) {
           return std::ranges::find(codings, descriptor.tag) != std::end(codings);
         });
}

ServiceInformation::ServiceInformation(std::optional<CharacterTable> table, Clock clock)
    : tableIsGiven_(table.has_value()),
      clock_(std::move(clock)),
      table_(table.value_or(CharacterTable())),
      networkPid_(NIT_PID) {
  for (const std::uint16_t pid : basicPids) assemblers_.try_emplace(pid);
}

void ServiceInformation::take(Packet packet) {
  const std::lock_guard lock(mutex_);
  ++counters_.packets;
  if (packet[0] != syncByte || (packet[1] & 0x80U) != 0) {
    ++counters_.errors.damagedPackets;
    return;
  }
  const std::uint16_t pid = pidOf(packet);
  const auto assembler = assemblers_.find(pid);
  if (assembler == assemblers_.end()) return;
  assembler->second.feed(packet, counters_.errors,
                         [&](const Section& section) { store(pid, section); });
}

void ServiceInformation::interrupted(bool isOther) {
  const std::lock_guard lock(mutex_);
  for (auto& [pid, assembler] : assemblers_) assembler.reset();
  if (!isOther) return;
  tables_.clear();
  eventTables_.clear();
  programs_.clear();
  programOrder_.clear();
  transportStreamId_ = -1;
  patVersion_ = -1;
  time_.reset();
  ++streamGeneration_;
  ++programGeneration_;
}

void ServiceInformation::resetCounters() {
  const std::lock_guard lock(mutex_);
  counters_ = {};
}

/// Whether the table may come on this PID (ETSI EN 300 468, 5.1.3): what looks like one elsewhere
/// is something else.
bool ServiceInformation::isInPlace(std::uint16_t pid, const Section& section) const {
  const std::uint8_t tableId = psi_get_tableid(section.data());
  if (isEit(tableId)) return pid == EIT_PID || pid == eitLowPid;
  switch (tableId) {
    case PAT_TABLE_ID:
      return pid == PAT_PID;
    case CAT_TABLE_ID:
      return pid == CAT_PID;
    case PMT_TABLE_ID: {
      // A map of another program can share the PID.
      const auto program = programs_.find(psi_get_tableidext(section.data()));
      return program != programs_.end() && program->second == pid;
    }
    case NIT_TABLE_ID_ACTUAL:
    case NIT_TABLE_ID_OTHER:
      return pid == NIT_PID || pid == networkPid_;
    case SDT_TABLE_ID_ACTUAL:
    case SDT_TABLE_ID_OTHER:
    case BAT_TABLE_ID:
      return pid == SDT_PID;
    default:
      return false;
  }
}

void ServiceInformation::store(std::uint16_t pid, const Section& section) {
  ++counters_.sections;
  const std::uint8_t tableId = psi_get_tableid(section.data());
  if (tableId == TDT_TABLE_ID || tableId == TOT_TABLE_ID) {
    if (pid == TDT_PID) storeTime(section);
    return;
  }
  if (!psi_get_syntax(section.data()) || !psi_get_current(section.data()) || !isReadable(section) ||
      !isInPlace(pid, section) ||
      psi_get_section(section.data()) > psi_get_lastsection(section.data())) {
    return;
  }
  expire();
  const std::uint16_t extension = psi_get_tableidext(section.data());
  if (tableId == PAT_TABLE_ID && transportStreamId_ != -1 && transportStreamId_ != extension) {
    leaveStream(extension);
  }
  std::uint32_t further = 0;
  if (isEit(tableId)) further = uint32(&section[8]);
  if (isSdt(tableId)) further = uint16(&section[8]);
  SectionStore& store = isEit(tableId) ? eventTables_ : tables_;
  const SectionStore::Change change =
      store.put({pid, tableId, extension, further}, section, received_,
                isEit(tableId) ? countEvents(section) * ServiceInformation::eventOverhead : 0);
  if (change.isNew) ++counters_.changes;
  if (tableId == PAT_TABLE_ID) {
    patIsNew_ = patIsNew_ || change.isNew;
    if (patIsNew_ || patVersion_ != psi_get_version(section.data())) followPat();
    lastPat_ = tables_.puts();
    if (std::exchange(patIsNew_, false)) ++programGeneration_;
  }
  if ((change.isNew && tableId == PMT_TABLE_ID) || change.mapHasGone) ++programGeneration_;
  const bool tellsTheTexts = tableId == NIT_TABLE_ID_ACTUAL || tableId == SDT_TABLE_ID_ACTUAL;
  textsAreNew_ = textsAreNew_ || (change.isNew && tellsTheTexts);
  if (!tableIsGiven_ && textsAreNew_) table_ = findTable();
  textsAreNew_ = false;
}

/// Drops what has been off air for long.
void ServiceInformation::expire() {
  constexpr SectionStore::Time longestPause{1000};
  const auto now = clock_();
  if (lastSection_) {
    const auto pause = std::chrono::duration_cast<SectionStore::Time>(now - *lastSection_);
    // What is less than the clock's unit is left for the next time.
    if (pause.count() == 0) return;
    received_ += std::min(pause, longestPause);
  }
  lastSection_ = now;
  tables_.expire(received_ - maxAge);
  eventTables_.expire(received_ - maxAge);
}

void ServiceInformation::storeTime(const Section& section) {
  const bool isTdt = psi_get_tableid(section.data()) == TDT_TABLE_ID;
  if (isTdt ? !tdt_validate(section.data()) : !tot_validate(section.data())) return;
  const std::int64_t time = timeOf(tdt_get_utc(section.data()));
  if (time != -1) time_ = time;
}

/// Another transport stream is received, by its PAT: drops what spoke of the one before as the
/// actual one. The PAT need not be the first that has come of the new one: its SDT and EIT say of
/// themselves which they belong to, other tables have come behind the last PAT if they are its own.
void ServiceInformation::leaveStream(std::uint16_t next) {
  tables_.eraseIf([&](const SubTable& table, std::uint64_t put) {
    switch (table.tableId) {
      case PAT_TABLE_ID:
      case PMT_TABLE_ID:
        return true;
      case CAT_TABLE_ID:
      case NIT_TABLE_ID_ACTUAL:
        return put < lastPat_;
      case SDT_TABLE_ID_ACTUAL:
        return table.extension != next;
      case SDT_TABLE_ID_OTHER:
        return table.extension == next;
      default:
        return false;
    }
  });
  eventTables_.eraseIf([&](const SubTable& table, std::uint64_t) {
    const bool isOfNext = table.further >> 16U == next;
    return isEitActual(table.tableId) ? !isOfNext : isOfNext;
  });
  ++streamGeneration_;
}

/// Where memory runs out, it throws, and all is as it was before, apart from PIDs that are read
/// without need.
void ServiceInformation::followPat() {
  std::map<std::uint16_t, std::uint16_t> programs;
  std::vector<std::uint16_t> programOrder;
  std::set<std::uint16_t> pids(std::begin(basicPids), std::end(basicPids));
  std::uint16_t networkPid = NIT_PID;
  int transportStreamId = -1;
  int version = -1;
  tables_.forEach([&](const SubTable& table, const Section& section) {
    if (table.tableId != PAT_TABLE_ID) return;
    transportStreamId = table.extension;
    Section copy = section;
    version = psi_get_version(copy.data());
    for (std::uint8_t index = 0; std::uint8_t* const entry = pat_get_program(copy.data(), index);
         ++index) {
      const std::uint16_t program = patn_get_program(entry);
      const std::uint16_t pid = patn_get_pid(entry);
      pids.insert(pid);
      if (program == 0) {
        networkPid = pid;
      } else if (programs.insert_or_assign(program, pid).second) {
        programOrder.push_back(program);
      }
    }
  });
  for (const std::uint16_t pid : pids) assemblers_.try_emplace(pid);
  // Nothing from here on needs memory.
  std::erase_if(assemblers_, [&](const auto& entry) { return !pids.contains(entry.first); });
  programs_.swap(programs);
  programOrder_.swap(programOrder);
  networkPid_ = networkPid;
  transportStreamId_ = transportStreamId;
  patVersion_ = version;
  tables_.eraseIf([&](const SubTable& table, std::uint64_t) {
    const auto program = programs_.find(table.extension);
    return table.tableId == PMT_TABLE_ID &&
           (program == programs_.end() || program->second != table.pid);
  });
}

/// The sections of some tables, in the order of the sub-tables. Reception, which needs the lock,
/// waits for a few hundred of them at most.
std::vector<HeldSection> ServiceInformation::sections(const SectionStore& store,
                                                      std::uint8_t firstTable,
                                                      std::uint8_t lastTable) const {
  constexpr std::size_t atOnce = 200;
  std::vector<HeldSection> sections;
  std::vector<HeldSection> some;
  some.reserve(atOnce + 256);
  std::optional<SubTable> last;
  std::optional<std::uint64_t> stream;
  do {
    some.clear();
    {
      const std::lock_guard lock(mutex_);
      if (stream && *stream != streamGeneration_) {
        // What has been copied belongs to another stream.
        sections.clear();
        last.reset();
      }
      stream = streamGeneration_;
      last = store.copy(last, atOnce, some);
    }
    std::ranges::copy_if(some, std::back_inserter(sections), [&](const HeldSection& held) {
      return held.table.tableId >= firstTable && held.table.tableId <= lastTable;
    });
  } while (last);
  return sections;
}

// Japan's networks have the numbers from 0x7800 on (ARIB TR-B14); elsewhere ISDB texts are in
// ISO 8859-15 (ABNT NBR 15603-2).
CharacterTable ServiceInformation::findTable() const {
  bool isIsdb = false;
  bool isJapanese = false;
  tables_.forEach([&](const SubTable& table, const Section& section) {
    if (table.tableId == SDT_TABLE_ID_ACTUAL) isJapanese = isJapanese || table.further >= 0x7800;
    if (table.tableId != NIT_TABLE_ID_ACTUAL) return;
    Section copy = section;
    for (std::uint8_t index = 0; std::uint8_t* const loop = nit_get_ts(copy.data(), index);
         ++index) {
      for (const Descriptor& descriptor : readLoop(nitn_get_descs(loop))) {
        isIsdb = isIsdb || descriptor.tag == isdbTerrestrialDelivery;
      }
    }
  });
  if (!isIsdb) return {};
  return {isJapanese ? "ARIB" : "ISO-8859-15"};
}

/// Reads texts and what holds them, in the character table that held when it was made.
class ServiceInformation::Reader {
 public:
  explicit Reader(CharacterTable table) : table_(std::move(table)) {}

  [[nodiscard]] std::string text(std::span<const std::uint8_t> bytes) const {
    return toUtf8(bytes, table_);
  }
  void readServiceDescriptor(const Descriptor& descriptor, Service& service) const;
  void readEventTexts(Event& event) const;
  [[nodiscard]] Network readNetwork(Section& section) const;

 private:
  [[nodiscard]] std::string text(const ContinuedText& parts) const { return toUtf8(parts, table_); }

  const CharacterTable table_;
};

ServiceInformation::Reader ServiceInformation::reader() const {
  const std::lock_guard lock(mutex_);
  return Reader(table_);
}

int ServiceInformation::transportStreamId() const {
  const std::lock_guard lock(mutex_);
  return transportStreamId_;
}

int ServiceInformation::patVersion() const {
  const std::lock_guard lock(mutex_);
  return patVersion_;
}

int ServiceInformation::currentService() const {
  const std::lock_guard lock(mutex_);
  const int selected = selected_;
  const bool isThere = std::ranges::find(programOrder_, selected) != programOrder_.end();
  if (isThere) return selected;
  return programOrder_.empty() ? -1 : programOrder_.front();
}

void ServiceInformation::selectService(int service) { selected_ = service; }

std::optional<std::int64_t> ServiceInformation::broadcastTime() const {
  const std::lock_guard lock(mutex_);
  return time_;
}

Counters ServiceInformation::counters() const {
  const std::lock_guard lock(mutex_);
  return counters_;
}

void ServiceInformation::Reader::readServiceDescriptor(const Descriptor& descriptor,
                                                       Service& service) const {
  const auto bytes = whole(descriptor);
  if (descriptor.tag != 0x48 || !desc48_validate(bytes.data())) return;
  std::uint8_t length = 0;
  service.type = desc48_get_type(bytes.data());
  const std::uint8_t* field = desc48_get_provider(bytes.data(), &length);
  service.provider = text(std::span(field, length));
  field = desc48_get_service(bytes.data(), &length);
  service.name = text(std::span(field, length));
}

std::vector<Service> ServiceInformation::services() const {
  const Reader texts = reader();
  std::vector<Service> services;
  std::set<std::uint16_t> named;
  for (const HeldSection& held : sections(tables_, SDT_TABLE_ID_ACTUAL, SDT_TABLE_ID_OTHER)) {
    // The number of ISO/IEC 13818-6 tables and of others lies between the two tables'.
    if (!isSdt(held.table.tableId)) continue;
    const bool isActual = held.table.tableId == SDT_TABLE_ID_ACTUAL;
    Section section = *held.section;
    for (std::uint8_t index = 0; std::uint8_t* const entry = sdt_get_service(section.data(), index);
         ++index) {
      Service service{};
      service.id = sdtn_get_sid(entry);
      service.transportStream = psi_get_tableidext(section.data());
      service.originalNetwork = sdt_get_onid(section.data());
      service.type = -1;
      service.runningStatus = sdtn_get_running(entry);
      service.isScrambled = sdtn_get_ca(entry);
      service.hasSchedule = sdtn_get_eitschedule(entry);
      service.hasPresentFollowing = sdtn_get_eitpresent(entry);
      service.isActual = isActual;
      for (const Descriptor& descriptor : readLoop(sdtn_get_descs(entry))) {
        texts.readServiceDescriptor(descriptor, service);
      }
      if (isActual) named.insert(service.id);
      services.push_back(std::move(service));
    }
  }
  const std::lock_guard lock(mutex_);
  for (Service& service : services) {
    service.isInPat = service.isActual && programs_.contains(service.id);
  }
  for (const std::uint16_t program : programOrder_) {
    if (named.contains(program)) continue;
    Service service{};
    service.id = program;
    service.transportStream = static_cast<std::uint16_t>(transportStreamId_);
    service.originalNetwork = -1;
    service.type = -1;
    service.isActual = true;
    service.isInPat = true;
    services.push_back(std::move(service));
  }
  // The received stream's services first, in the order of the table.
  std::stable_partition(services.begin(), services.end(),
                        [](const Service& service) { return service.isActual; });
  return services;
}

Descriptors ServiceInformation::serviceDescriptors(int serviceId) const {
  Descriptors descriptors;
  for (const HeldSection& held : sections(tables_, SDT_TABLE_ID_ACTUAL, SDT_TABLE_ID_ACTUAL)) {
    Section section = *held.section;
    for (std::uint8_t index = 0; std::uint8_t* const entry = sdt_get_service(section.data(), index);
         ++index) {
      if (sdtn_get_sid(entry) == serviceId) descriptors = readLoop(sdtn_get_descs(entry));
    }
  }
  return descriptors;
}

std::vector<Event> ServiceInformation::events() const {
  std::vector<Event> events;
  forEachEvent([](const Event&) { return true; },
               [&](Event&& event) { events.push_back(std::move(event)); });
  return events;
}

std::size_t ServiceInformation::eventCount() const {
  std::size_t count = 0;
  forEachEvent(
      [&](const Event&) {
        ++count;
        return false;
      },
      [](Event&&) {});
  return count;
}

void ServiceInformation::forEachEvent(const std::function<bool(const Event&)>& isWanted,
                                      const std::function<void(Event&&)>& visit) const {
  const Reader texts = reader();
  std::vector<HeldSection> all =
      sections(eventTables_, EIT_TABLE_ID_PF_ACTUAL, EIT_TABLE_ID_SCHED_OTHER_LAST);
  // What ISDB repeats for handheld receivers is the same event again.
  const bool hasRepeats = !all.empty() && all.back().table.pid == eitLowPid;
  std::set<std::tuple<std::uint8_t, std::uint32_t, std::uint16_t, std::uint8_t, std::uint16_t>>
      seen;
  for (HeldSection& held : all) {
    Section section = *held.section;
    held.section.reset();
    forEachEntry(section, [&](std::uint8_t* entry) {
      Event event = readEvent(section, entry);
      const bool isRepeated = hasRepeats && !seen.emplace(event.tableId, held.table.further,
                                                          event.service, event.section, event.id)
                                                 .second;
      if (isRepeated || !isWanted(event)) return;
      event.descriptors = readLoop(eitn_get_descs(entry));
      texts.readEventTexts(event);
      visit(std::move(event));
    });
  }
}

void ServiceInformation::Reader::readEventTexts(Event& event) const {
  std::uint8_t length = 0;
  // A text or an item can go on in the next descriptor, and each language has its own.
  ContinuedText extended;
  std::string language;
  std::vector<std::pair<std::string, ContinuedText>> items;
  for (const Descriptor& descriptor : event.descriptors) {
    auto bytes = whole(descriptor);
    std::uint8_t* const data = bytes.data();
    if (descriptor.tag == 0x4d && desc4d_validate(data)) {
      event.language.assign(reinterpret_cast<const char*>(desc4d_get_lang(data)), 3);
      const std::uint8_t* field = desc4d_get_event_name(data, &length);
      event.name = text(std::span(field, length));
      field = desc4d_get_text(data, &length);
      event.text = text(std::span(field, length));
    } else if (descriptor.tag == 0x4e && desc4e_validate(data)) {
      std::string itsLanguage(reinterpret_cast<const char*>(desc4e_get_lang(data)), 3);
      if (itsLanguage != language || desc4e_get_desc_number(data) == 0) {
        event.extendedText += text(std::exchange(extended, {}));
        language = std::move(itsLanguage);
      }
      for (std::uint8_t index = 0; std::uint8_t* const item = desc4e_get_item(data, index);
           ++index) {
        const std::uint8_t* field = desc4en_get_item_description(item, &length);
        const std::string description = text(std::span(field, length));
        field = desc4en_get_item_text(item, &length);
        if (!description.empty() || items.empty()) items.emplace_back(description, ContinuedText());
        items.back().second.emplace_back(field, field + length);
      }
      const std::uint8_t* const field = desc4e_get_text(data, &length);
      extended.emplace_back(field, field + length);
    } else if (descriptor.tag == 0x54) {
      event.content.insert(event.content.end(), descriptor.data.begin(), descriptor.data.end());
    } else if (descriptor.tag == 0x55) {
      event.parentalRating.insert(event.parentalRating.end(), descriptor.data.begin(),
                                  descriptor.data.end());
    }
  }
  event.extendedText += text(extended);
  for (const auto& [description, item] : items) event.items.emplace_back(description, text(item));
}

std::vector<ProgramMap> ServiceInformation::programMaps() const {
  std::vector<ProgramMap> maps;
  for (const HeldSection& held : sections(tables_, PMT_TABLE_ID, PMT_TABLE_ID)) {
    Section section = *held.section;
    ProgramMap map{};
    map.program = held.table.extension;
    map.pid = held.table.pid;
    map.pcrPid = pmt_get_pcrpid(section.data());
    map.version = psi_get_version(section.data());
    map.caSystems = caSystemsOf(readLoop(pmt_get_descs(section.data())));
    for (std::uint8_t index = 0; std::uint8_t* const entry = pmt_get_es(section.data(), index);
         ++index) {
      Component component{};
      component.pid = pmtn_get_pid(entry);
      component.streamType = pmtn_get_streamtype(entry);
      component.tag = -1;
      component.program = map.program;
      component.descriptors = readLoop(pmtn_get_descs(entry));
      component.caSystems = caSystemsOf(component.descriptors);
      for (const Descriptor& descriptor : component.descriptors) {
        if (descriptor.tag == 0x52 && !descriptor.data.empty()) component.tag = descriptor.data[0];
        if (descriptor.tag == 0x0a && descriptor.data.size() >= 3 && component.language.empty()) {
          component.language.assign(descriptor.data.begin(), descriptor.data.begin() + 3);
        }
      }
      map.components.push_back(std::move(component));
    }
    maps.push_back(std::move(map));
  }
  // In the order of the PAT.
  std::map<std::uint16_t, std::size_t> ranks;
  {
    const std::lock_guard lock(mutex_);
    for (const std::uint16_t program : programOrder_) ranks.emplace(program, ranks.size());
  }
  std::ranges::stable_sort(maps, {}, [&](const ProgramMap& map) {
    const auto rank = ranks.find(map.program);
    return rank == ranks.end() ? ranks.size() : rank->second;
  });
  return maps;
}

std::set<int> ServiceInformation::caSystems() const {
  std::set<int> systems;
  for (const HeldSection& held : sections(tables_, CAT_TABLE_ID, CAT_TABLE_ID)) {
    Section section = *held.section;
    systems.merge(
        caSystemsOf(readLoop(cat_get_descl(section.data()), cat_get_desclength(section.data()))));
  }
  for (ProgramMap& map : programMaps()) {
    systems.merge(map.caSystems);
    for (Component& component : map.components) systems.merge(component.caSystems);
  }
  return systems;
}

std::vector<Network> ServiceInformation::networks() const { return readNetworks(false); }

std::vector<Network> ServiceInformation::bouquets() const { return readNetworks(true); }

// A network's sections one behind the other are one network.
std::vector<Network> ServiceInformation::readNetworks(bool bouquets) const {
  const Reader texts = reader();
  std::vector<Network> networks;
  const std::uint8_t first = bouquets ? BAT_TABLE_ID : NIT_TABLE_ID_ACTUAL;
  const std::uint8_t last = bouquets ? BAT_TABLE_ID : NIT_TABLE_ID_OTHER;
  for (const HeldSection& held : sections(tables_, first, last)) {
    Section section = *held.section;
    Network network = texts.readNetwork(section);
    if (networks.empty() || networks.back().id != network.id ||
        networks.back().isActual != network.isActual) {
      networks.push_back(std::move(network));
      continue;
    }
    Network& whole = networks.back();
    if (whole.name.empty()) whole.name = network.name;
    std::move(network.descriptors.begin(), network.descriptors.end(),
              std::back_inserter(whole.descriptors));
    std::move(network.transportStreams.begin(), network.transportStreams.end(),
              std::back_inserter(whole.transportStreams));
  }
  return networks;
}

Network ServiceInformation::Reader::readNetwork(Section& section) const {
  Network network{};
  network.id = psi_get_tableidext(section.data());
  network.isActual = psi_get_tableid(section.data()) == NIT_TABLE_ID_ACTUAL;
  network.descriptors = readLoop(nit_get_descs(section.data()));
  for (const Descriptor& descriptor : network.descriptors) {
    // The name of a network or of a bouquet.
    if (descriptor.tag == 0x40 || descriptor.tag == 0x47)
      network.name = text(std::span(descriptor.data));
  }
  for (std::uint8_t index = 0; std::uint8_t* const loop = nit_get_ts(section.data(), index);
       ++index) {
    network.transportStreams.push_back(readTransportStream(loop));
  }
  return network;
}

}  // namespace receiver
