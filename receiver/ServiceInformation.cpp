#include "receiver/ServiceInformation.h"

#include <algorithm>
#include <cstring>

#include "receiver/bitstream.h"

namespace receiver {
namespace {

constexpr std::uint16_t eitLowPid = 0x27;  // Where ISDB repeats the EIT for its handheld service.
constexpr std::uint8_t isdbTerrestrialDelivery = 0xfa;
constexpr std::uint8_t isdbTransportStream = 0xcd;
constexpr std::uint8_t logicalChannel = 0x83;

std::uint16_t uint16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

std::uint32_t uint32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(uint16(bytes)) << 16U | uint16(bytes + 2);
}

/// Two decimal digits in a byte.
int decimal(unsigned byte) { return static_cast<int>((byte >> 4U) * 10 + (byte & 15U)); }

/// Decimal digits in four bytes.
double decimals(const std::uint8_t* bytes) {
  double value = 0;
  for (int index = 0; index < 4; ++index) value = value * 100 + decimal(bytes[index]);
  return value;
}

int secondsOfDay(std::uint32_t digits) {
  return decimal(digits >> 16U & 0xffU) * 3600 + decimal(digits >> 8U & 0xffU) * 60 +
         decimal(digits & 0xffU);
}

/// A date and time (ETSI EN 300 468, annex C). The day's number of 16 bits wraps in 2038: a count
/// from before 1970 means 65,536 days more.
std::int64_t timeOf(std::uint64_t broadcast) {
  constexpr std::uint64_t undefined = 0xffffffffff;
  constexpr std::int64_t dayOf1970 = 40587;
  if (broadcast == undefined) return -1;
  auto day = static_cast<std::int64_t>(broadcast >> 24U);
  if (day < dayOf1970) day += 65536;
  return (day - dayOf1970) * 86400 + secondsOfDay(static_cast<std::uint32_t>(broadcast & 0xffffff));
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

void readChannelNumbers(const Descriptor& descriptor, TransportStream& stream) {
  const auto& data = descriptor.data;
  if (descriptor.tag == logicalChannel) {
    for (std::size_t index = 0; index + 4 <= data.size(); index += 4) {
      stream.channelNumbers[uint16(&data[index])] = uint16(&data[index + 2]) & 0x3ff;
    }
  } else if (descriptor.tag == isdbTransportStream && !data.empty()) {
    // The key on the remote control, for all services of the stream.
    for (const int service : stream.services) stream.channelNumbers.try_emplace(service, data[0]);
  }
}

/// Whether two sections differ in their version and CRC only.
bool sameContent(const Section& one, const Section& other) {
  constexpr std::size_t versionByte = 5;
  if (one.size() != other.size()) return false;
  const bool hasVersion = psi_get_syntax(one.data());
  const std::size_t end = one.size() - (hasVersion ? PSI_CRC_SIZE : 0);
  for (std::size_t index = 0; index < end; ++index) {
    const std::uint8_t mask = hasVersion && index == versionByte ? 0xc1 : 0xff;
    if (((one[index] ^ other[index]) & mask) != 0) return false;
  }
  return true;
}

bool isEit(std::uint8_t tableId) { return tableId >= 0x4e && tableId <= 0x6f; }

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

}  // namespace

ServiceInformation::ServiceInformation(std::optional<CharacterTable> table)
    : tableIsGiven_(table.has_value()), table_(table.value_or(CharacterTable())) {
  for (const std::uint16_t pid :
       {std::uint16_t{PAT_PID}, std::uint16_t{CAT_PID}, std::uint16_t{NIT_PID},
        std::uint16_t{SDT_PID}, std::uint16_t{EIT_PID}, std::uint16_t{TDT_PID}, eitLowPid}) {
    watch(pid);
  }
}

void ServiceInformation::watch(std::uint16_t pid) { assemblers_.try_emplace(pid); }

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
  programs_.clear();
  programOrder_.clear();
  transportStreamId_ = -1;
  patVersion_ = -1;
  time_.reset();
  ++programGeneration_;
}

void ServiceInformation::resetCounters() {
  const std::lock_guard lock(mutex_);
  counters_ = {};
}

void ServiceInformation::store(std::uint16_t pid, const Section& section) {
  ++counters_.sections;
  const std::uint8_t tableId = psi_get_tableid(section.data());
  if (tableId == TDT_TABLE_ID || tableId == TOT_TABLE_ID) {
    storeTime(section);
    return;
  }
  if (!psi_get_syntax(section.data()) || !psi_get_current(section.data()) || !isReadable(section)) {
    return;
  }
  const std::uint16_t extension = psi_get_tableidext(section.data());
  if (tableId == PMT_TABLE_ID) {
    const auto program = programs_.find(extension);
    // A map of another program can share the PID.
    if (program == programs_.end() || program->second != pid) return;
  }
  std::uint32_t further = 0;
  if (isEit(tableId)) further = uint32(&section[8]);
  if (tableId == SDT_TABLE_ID_ACTUAL || tableId == SDT_TABLE_ID_OTHER)
    further = uint16(&section[8]);
  const std::uint8_t number = psi_get_section(section.data());
  Sections& sections = tables_[{pid, tableId, extension, further}];
  const auto before = sections.find(number);
  const bool isNew = before == sections.end() || !sameContent(before->second, section);
  if (isNew) ++counters_.changes;
  sections.insert_or_assign(number, section);
  sections.erase(sections.upper_bound(psi_get_lastsection(section.data())), sections.end());
  if (tableId == PAT_TABLE_ID) followPat();
  if (isNew && (tableId == PAT_TABLE_ID || tableId == PMT_TABLE_ID)) ++programGeneration_;
  if (!tableIsGiven_ && (tableId == NIT_TABLE_ID_ACTUAL || tableId == SDT_TABLE_ID_ACTUAL)) {
    table_ = findTable();
  }
}

void ServiceInformation::storeTime(const Section& section) {
  const bool isTdt = psi_get_tableid(section.data()) == TDT_TABLE_ID;
  if (isTdt ? tdt_validate(section.data()) : tot_validate(section.data())) {
    time_ = timeOf(tdt_get_utc(section.data()));
  }
}

void ServiceInformation::followPat() {
  // A transport stream has one PAT: that of another id is what was received before.
  programs_.clear();
  programOrder_.clear();
  const SubTable* newest = nullptr;
  for (const auto& [table, sections] : tables_) {
    if (table.tableId != PAT_TABLE_ID) continue;
    newest = &table;
    for (const auto& [number, section] : sections) {
      Section copy = section;
      patVersion_ = psi_get_version(copy.data());
      for (std::uint8_t index = 0; std::uint8_t* const entry = pat_get_program(copy.data(), index);
           ++index) {
        watch(patn_get_pid(entry));
        const std::uint16_t program = patn_get_program(entry);
        if (program == 0) continue;
        programs_[program] = patn_get_pid(entry);
        programOrder_.push_back(program);
      }
    }
  }
  if (newest != nullptr) transportStreamId_ = newest->extension;
  std::erase_if(tables_, [&](const auto& entry) {
    const auto program = programs_.find(entry.first.extension);
    return entry.first.tableId == PMT_TABLE_ID &&
           (program == programs_.end() || program->second != entry.first.pid);
  });
}

template <class Visitor>
void ServiceInformation::forEachSection(std::uint8_t firstTable, std::uint8_t lastTable,
                                        Visitor&& visit) const {
  for (const auto& [table, sections] : tables_) {
    if (table.tableId < firstTable || table.tableId > lastTable) continue;
    for (const auto& [number, section] : sections) {
      Section copy = section;
      visit(table.pid, copy);
    }
  }
}

bool ServiceInformation::carriesIsdb() const {
  bool found = false;
  forEachSection(NIT_TABLE_ID_ACTUAL, NIT_TABLE_ID_ACTUAL, [&](std::uint16_t, Section& section) {
    for (std::uint8_t index = 0; std::uint8_t* const loop = nit_get_ts(section.data(), index);
         ++index) {
      for (const Descriptor& descriptor : readLoop(nitn_get_descs(loop))) {
        found = found || descriptor.tag == isdbTerrestrialDelivery;
      }
    }
  });
  return found;
}

// Japan's networks have the numbers from 0x7800 on (ARIB TR-B14); elsewhere ISDB texts are in
// ISO 8859-15 (ABNT NBR 15603-2).
CharacterTable ServiceInformation::findTable() const {
  if (!carriesIsdb()) return {};
  bool isJapanese = false;
  for (const auto& [table, sections] : tables_) {
    isJapanese = isJapanese || (table.tableId == SDT_TABLE_ID_ACTUAL && table.further >= 0x7800);
  }
  return {isJapanese ? "ARIB" : "ISO-8859-15"};
}

std::string ServiceInformation::text(std::span<const std::uint8_t> bytes) const {
  return toUtf8(bytes, table_);
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

std::vector<Service> ServiceInformation::services() const {
  const std::lock_guard lock(mutex_);
  std::vector<Service> services;
  std::set<std::uint16_t> named;
  forEachSection(SDT_TABLE_ID_ACTUAL, SDT_TABLE_ID_OTHER, [&](std::uint16_t, Section& section) {
    const std::uint8_t tableId = psi_get_tableid(section.data());
    const bool isActual = tableId == SDT_TABLE_ID_ACTUAL;
    // The BAT's number lies between the two tables'.
    if (!isActual && tableId != SDT_TABLE_ID_OTHER) return;
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
      service.isInPat = isActual && programs_.count(service.id) != 0;
      for (const Descriptor& descriptor : readLoop(sdtn_get_descs(entry))) {
        const auto bytes = whole(descriptor);
        if (descriptor.tag != 0x48 || !desc48_validate(bytes.data())) continue;
        std::uint8_t length = 0;
        service.type = desc48_get_type(bytes.data());
        const std::uint8_t* field = desc48_get_provider(bytes.data(), &length);
        service.provider = text(std::span(field, length));
        field = desc48_get_service(bytes.data(), &length);
        service.name = text(std::span(field, length));
      }
      if (isActual) named.insert(service.id);
      services.push_back(std::move(service));
    }
  });
  for (const std::uint16_t program : programOrder_) {
    if (named.count(program) != 0) continue;
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
  const std::lock_guard lock(mutex_);
  Descriptors descriptors;
  forEachSection(SDT_TABLE_ID_ACTUAL, SDT_TABLE_ID_ACTUAL, [&](std::uint16_t, Section& section) {
    for (std::uint8_t index = 0; std::uint8_t* const entry = sdt_get_service(section.data(), index);
         ++index) {
      if (sdtn_get_sid(entry) == serviceId) descriptors = readLoop(sdtn_get_descs(entry));
    }
  });
  return descriptors;
}

std::vector<Event> ServiceInformation::events() const {
  const std::lock_guard lock(mutex_);
  std::vector<Event> events;
  // What ISDB repeats for handheld receivers is the same event again.
  std::set<std::tuple<std::uint8_t, std::uint32_t, std::uint16_t, std::uint8_t, std::uint16_t>>
      seen;
  forEachSection(
      EIT_TABLE_ID_PF_ACTUAL, EIT_TABLE_ID_SCHED_OTHER_LAST, [&](std::uint16_t, Section& section) {
        // Not by eit_get_event(), whose index has eight bits: a section can hold 339 events.
        std::uint8_t* const end = section.data() + section.size() - PSI_CRC_SIZE;
        for (std::uint8_t* entry = section.data() + EIT_HEADER_SIZE; entry < end;
             entry += EIT_EVENT_SIZE + eitn_get_desclength(entry)) {
          Event event = readEvent(section, entry);
          const std::uint32_t stream = uint32(&section[8]);
          if (seen.emplace(event.tableId, stream, event.service, event.section, event.id).second) {
            events.push_back(std::move(event));
          }
        }
      });
  return events;
}

Event ServiceInformation::readEvent(Section& section, std::uint8_t* entry) const {
  Event event{};
  event.tableId = psi_get_tableid(section.data());
  event.service = psi_get_tableidext(section.data());
  event.transportStream = eit_get_tsid(section.data());
  event.originalNetwork = eit_get_onid(section.data());
  event.section = psi_get_section(section.data());
  event.version = psi_get_version(section.data());
  event.id = eitn_get_event_id(entry);
  event.start = timeOf(eitn_get_start_time(entry));
  constexpr std::uint32_t undefined = 0xffffff;
  const std::uint32_t duration = eitn_get_duration_bcd(entry);
  event.duration = duration == undefined ? -1 : secondsOfDay(duration);
  event.runningStatus = eitn_get_running(entry);
  event.isScrambled = eitn_get_ca(entry);
  event.descriptors = readLoop(eitn_get_descs(entry));
  readEventTexts(event);
  return event;
}

// ARIB's codes stay in force from one part to the next, in the middle of a character even; a DVB
// text chooses its character table in each part anew.
std::string ServiceInformation::text(const ContinuedText& parts) const {
  std::string converted;
  std::vector<std::uint8_t> joined;
  for (const std::vector<std::uint8_t>& part : parts) {
    if (table_.isArib()) {
      joined.insert(joined.end(), part.begin(), part.end());
    } else {
      converted += text(std::span<const std::uint8_t>(part));
    }
  }
  return converted + text(std::span<const std::uint8_t>(joined));
}

void ServiceInformation::readEventTexts(Event& event) const {
  std::uint8_t length = 0;
  // A text or an item can go on in the next descriptor.
  ContinuedText extended;
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
  event.extendedText = text(extended);
  for (const auto& [description, item] : items) event.items.emplace_back(description, text(item));
}

std::vector<ProgramMap> ServiceInformation::programMaps() const {
  const std::lock_guard lock(mutex_);
  return readProgramMaps();
}

std::vector<ProgramMap> ServiceInformation::readProgramMaps() const {
  std::vector<ProgramMap> maps;
  forEachSection(PMT_TABLE_ID, PMT_TABLE_ID, [&](std::uint16_t pid, Section& section) {
    ProgramMap map{};
    map.program = psi_get_tableidext(section.data());
    map.pid = pid;
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
  });
  // In the order of the PAT.
  const auto rank = [&](const ProgramMap& map) {
    return std::find(programOrder_.begin(), programOrder_.end(), map.program);
  };
  std::stable_sort(maps.begin(), maps.end(), [&](const ProgramMap& one, const ProgramMap& other) {
    return rank(one) < rank(other);
  });
  return maps;
}

std::set<int> ServiceInformation::caSystems() const {
  const std::lock_guard lock(mutex_);
  std::set<int> systems;
  forEachSection(CAT_TABLE_ID, CAT_TABLE_ID, [&](std::uint16_t, Section& section) {
    systems.merge(
        caSystemsOf(readLoop(cat_get_descl(section.data()), cat_get_desclength(section.data()))));
  });
  for (ProgramMap& map : readProgramMaps()) {
    systems.merge(map.caSystems);
    for (Component& component : map.components) systems.merge(component.caSystems);
  }
  return systems;
}

std::vector<Network> ServiceInformation::networks() const {
  const std::lock_guard lock(mutex_);
  return readNetworks(false);
}

std::vector<Network> ServiceInformation::bouquets() const {
  const std::lock_guard lock(mutex_);
  return readNetworks(true);
}

// A network's sections one behind the other are one network.
std::vector<Network> ServiceInformation::readNetworks(bool bouquets) const {
  std::vector<Network> networks;
  const std::uint8_t first = bouquets ? BAT_TABLE_ID : NIT_TABLE_ID_ACTUAL;
  const std::uint8_t last = bouquets ? BAT_TABLE_ID : NIT_TABLE_ID_OTHER;
  forEachSection(first, last, [&](std::uint16_t, Section& section) {
    Network network = readNetwork(section);
    if (networks.empty() || networks.back().id != network.id ||
        networks.back().isActual != network.isActual) {
      networks.push_back(std::move(network));
      return;
    }
    Network& whole = networks.back();
    if (whole.name.empty()) whole.name = network.name;
    std::move(network.descriptors.begin(), network.descriptors.end(),
              std::back_inserter(whole.descriptors));
    std::move(network.transportStreams.begin(), network.transportStreams.end(),
              std::back_inserter(whole.transportStreams));
  });
  return networks;
}

Network ServiceInformation::readNetwork(Section& section) const {
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

TransportStream ServiceInformation::readTransportStream(const std::uint8_t* loop) const {
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
  for (const Descriptor& descriptor : stream.descriptors) readChannelNumbers(descriptor, stream);
  return stream;
}

}  // namespace receiver
