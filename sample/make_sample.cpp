// quillwork-make-sample: writes the sample streams of the demo and the tests. Everything in them is
// made up here, but for pictures and sound, which it is given.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "receiver/bitstream.h"
#include "sample/carousel_sections.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t transportStream = 0x2001;
constexpr std::uint16_t otherStream = 0x2002;
constexpr std::uint16_t network = 0xff20;  // of the private range
constexpr std::uint16_t nitPid = 16;
constexpr std::uint16_t privatePid = 0x700;
constexpr std::uint16_t caSystem = 0x0b00;
constexpr std::uint16_t carouselPid = 0x710;
constexpr std::uint8_t carouselTag = 0x40;
constexpr std::uint8_t carouselId = 9;
constexpr std::uint16_t eventPid = 0x711;
constexpr std::uint8_t eventTag = 0x41;
constexpr std::time_t midnight = 1'790'208'000;  // 2026-09-24T00:00:00Z
constexpr std::time_t hour = 3600;
constexpr std::time_t now = midnight + 20 * hour + 600;
constexpr std::time_t eventSeconds = 2 * hour;
constexpr int eventsOfDay = 12;

// Texts as they are broadcast: the first byte chooses the character table (ETSI EN 300 468,
// annex A), none of them the default one.

/// UTF-8.
std::string utf8(const std::string& text) { return "\x15" + text; }

struct SampleService {
  std::uint16_t id;
  std::uint8_t type;
  std::uint16_t pmtPid;
  bool isScrambled;
  std::string provider;
  std::string name;
  std::array<std::string, eventsOfDay> events;
};

const std::vector<SampleService>& services() {
  static const std::vector<SampleService> all = {
      {1001,
       0x19,
       0x100,
       false,
       "Quillwork",
       "Quill One",
       {"Night Train", "Night Train", "Early Tide", "Harbour Kitchen", "Morning Post",
        "The Glass Orchard", "News at Noon", "Letters Home", "The Long Meadow", "Workshop",
        "Evening News", "A Night at the Observatory"}},
      // Default table: an accent stands before its letter.
      {1002,
       0x01,
       0x110,
       true,
       "Quillwork",
       "Cin\xc2"
       "ema \xc8Uber",
       {"Le Caf\xc2"
        "e",
        "L'\xc2"
        "et\xc2"
        "e",
        "No\xc8"
        "el",
        "Cora\xcb"
        "c\xc4"
        "ao",
        "Stra\xfb"
        "e",
        "M\xc8"
        "usli",
        "Caf\xc2"
        "e cr\xc1"
        "eme",
        "Cinq \xa4", "El ni\xc4no",
        "Gar\xcb"
        "con",
        "Fran\xcb"
        "cais",
        "La nuit"}},
      // ISO 8859-5.
      {1003,
       0x02,
       0x120,
       false,
       "Quillwork",
       "\x01\xc0\xd0\xd4\xd8\xde \xbf\xd5\xe0\xde",
       {"\x01\xbd\xde\xe7\xec", "\x01\xbd\xde\xe7\xec", "\x01\xc3\xe2\xe0\xde",
        "\x01\xc3\xe2\xe0\xde", "\x01\xbc\xe3\xd7\xeb\xda\xd0", "\x01\xbc\xe3\xd7\xeb\xda\xd0",
        "\x01\xbd\xde\xd2\xde\xe1\xe2\xd8", "\x01\xbc\xe3\xd7\xeb\xda\xd0",
        "\x01\xbc\xe3\xd7\xeb\xda\xd0", "\x01\xc2\xd5\xd0\xe2\xe0",
        "\x01\xbd\xde\xd2\xde\xe1\xe2\xd8", "\x01\xb4\xd6\xd0\xd7"}},
      {1004,
       0x01,
       0x130,
       false,
       "Quillwork",
       utf8("Ελλάδα 日本 ğş"),
       {utf8("Νύχτα"), utf8("夜の音楽"), utf8("Πρωινό"), utf8("朝のニュース"), utf8("Güneş"),
        utf8("المدينة"), utf8("Μεσημέρι"), utf8("昼休み"), utf8("Çarşı"), utf8("עיר"),
        utf8("Ειδήσεις"), utf8("天気予報")}},
  };
  return all;
}

/// More than fits into a field of 254 characters.
std::string longText() {
  std::string text;
  for (int sentence = 1; text.size() < 900; ++sentence) {
    text += "In part " + std::to_string(sentence) +
            " the keeper of the observatory reads the stars’ letters – señal, été, Ωmega. ";
  }
  return text;
}

/// A section that is being filled; its length and CRC come last.
class SectionBuilder {
 public:
  explicit SectionBuilder(const std::function<void(std::uint8_t*)>& init)
      : bytes_(PSI_PRIVATE_MAX_SIZE + PSI_HEADER_SIZE) {
    init(bytes_.data());
  }

  std::uint8_t* data() { return bytes_.data(); }

  /// The header's size from the table's own; what comes next is appended behind it.
  void startAt(std::size_t size) { size_ = size; }
  std::uint8_t* append(std::size_t size) {
    std::uint8_t* const place = data() + size_;
    size_ += size;
    return place;
  }
  void append(const Bytes& bytes) { std::copy(bytes.begin(), bytes.end(), append(bytes.size())); }

  void number(std::uint8_t version, std::uint8_t section, std::uint8_t last) {
    psi_set_version(data(), version);
    psi_set_current(data());
    psi_set_section(data(), section);
    psi_set_lastsection(data(), last);
  }

  Bytes finish() {
    psi_set_length(data(), static_cast<std::uint16_t>(size_ + PSI_CRC_SIZE - PSI_HEADER_SIZE));
    psi_set_crc(data());
    return {bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(size_ + PSI_CRC_SIZE)};
  }

 private:
  Bytes bytes_;
  std::size_t size_ = 0;
};

// Descriptors.

const std::uint8_t* octets(const std::string& text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::uint8_t octet(std::size_t value) { return static_cast<std::uint8_t>(value); }

/// A descriptor that `fill` makes in a buffer, cut to its length.
Bytes descriptor(const std::function<void(std::uint8_t*)>& fill) {
  std::uint8_t buffer[DESC_HEADER_SIZE + 255] = {};
  fill(buffer);
  return {buffer, buffer + DESC_HEADER_SIZE + desc_get_length(buffer)};
}

Bytes rawDescriptor(std::uint8_t tag, const Bytes& data) {
  return descriptor([&](std::uint8_t* desc) {
    desc_set_tag(desc, tag);
    desc_set_length(desc, octet(data.size()));
    std::copy(data.begin(), data.end(), desc + DESC_HEADER_SIZE);
  });
}

Bytes caDescriptor(std::uint16_t system, std::uint16_t pid) {
  return descriptor([&](std::uint8_t* desc) {
    desc09_init(desc);
    desc09_set_sysid(desc, system);
    desc09_set_pid(desc, pid);
  });
}

Bytes serviceDescriptor(const SampleService& service) {
  return descriptor([&](std::uint8_t* desc) {
    desc48_init(desc);
    desc48_set_type(desc, service.type);
    desc48_set_provider(desc, octets(service.provider), octet(service.provider.size()));
    desc48_set_service(desc, octets(service.name), octet(service.name.size()));
    desc48_set_length(desc);
  });
}

Bytes shortEvent(const std::string& name, const std::string& text) {
  return descriptor([&](std::uint8_t* desc) {
    desc4d_init(desc);
    desc4d_set_lang(desc, octets("eng"));
    desc4d_set_event_name(desc, octets(name), octet(name.size()));
    desc4d_set_text(desc, octets(text), octet(text.size()));
    desc4d_set_length(desc);
  });
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// A text over as many extended event descriptors as it takes, the first with one item.
Bytes extendedEvent(const std::string& text) {
  // Each part chooses its character table anew, and none ends inside a character.
  std::vector<std::string> pieces(1, utf8(""));
  for (const char character : text) {
    const bool beginsCharacter = (static_cast<unsigned char>(character) & 0xc0U) != 0x80;
    if (beginsCharacter && pieces.back().size() >= 200) pieces.push_back(utf8(""));
    pieces.back() += character;
  }
  const std::size_t last = pieces.size() - 1;
  Bytes all;
  for (std::size_t part = 0; part <= last; ++part) {
    const std::string& piece = pieces[part];
    Bytes items;
    if (part == 0) {
      for (const std::string& field : {std::string("Director"), std::string("Ada Quill")}) {
        items.push_back(octet(field.size()));
        items.insert(items.end(), field.begin(), field.end());
      }
    }
    const Bytes head = {octet(part << 4U | last), 'e', 'n', 'g', octet(items.size())};
    const Bytes length = {octet(piece.size())};
    const Bytes data = joined({head, items, length, Bytes(piece.begin(), piece.end())});
    const Bytes bytes = rawDescriptor(0x4e, data);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

// Tables.

Bytes pat() {
  SectionBuilder section([](std::uint8_t* data) { pat_init(data); });
  psi_set_tableidext(section.data(), transportStream);
  section.number(3, 0, 0);
  section.startAt(PAT_HEADER_SIZE);
  const auto add = [&](std::uint16_t program, std::uint16_t pid) {
    std::uint8_t* const entry = section.append(PAT_PROGRAM_SIZE);
    patn_init(entry);
    patn_set_program(entry, program);
    patn_set_pid(entry, pid);
  };
  add(0, nitPid);
  for (const SampleService& service : services()) add(service.id, service.pmtPid);
  return section.finish();
}

Bytes cat() {
  SectionBuilder section([](std::uint8_t* data) { cat_init(data); });
  section.number(1, 0, 0);
  section.startAt(CAT_HEADER_SIZE);
  section.append(caDescriptor(caSystem, 0x500));
  return section.finish();
}

/// `hasData`: with a carousel and stream events.
Bytes pmt(const SampleService& service, bool hasData) {
  SectionBuilder section([](std::uint8_t* data) { pmt_init(data); });
  psi_set_tableidext(section.data(), service.id);
  section.number(2, 0, 0);
  const auto videoPid = static_cast<std::uint16_t>(service.pmtPid + 1);
  pmt_set_pcrpid(section.data(), videoPid);
  const Bytes descriptors = service.isScrambled ? caDescriptor(caSystem, 0x501) : Bytes();
  pmt_set_desclength(section.data(), static_cast<std::uint16_t>(descriptors.size()));
  section.startAt(PMT_HEADER_SIZE);
  section.append(descriptors);
  const auto add = [&](std::uint8_t type, std::uint16_t pid, const Bytes& loop) {
    std::uint8_t* const entry = section.append(PMT_ES_SIZE);
    pmtn_init(entry);
    pmtn_set_streamtype(entry, type);
    pmtn_set_pid(entry, pid);
    pmtn_set_desclength(entry, static_cast<std::uint16_t>(loop.size()));
    section.append(loop);
  };
  if (service.type != 0x02) {
    // The second descriptor has no bytes.
    add(0x1b, videoPid, joined({rawDescriptor(0x52, {1}), rawDescriptor(0x80, {})}));
  }
  for (const auto& stream : {std::pair(2, "eng"), std::pair(3, "por")}) {
    const int tag = stream.first;
    const std::string language = stream.second;
    const Bytes code = descriptor([&](std::uint8_t* desc) {
      desc0a_init(desc);
      desc_set_length(desc, DESC0A_LANGUAGE_SIZE);
      std::uint8_t* const entry = desc0a_get_language(desc, 0);
      desc0an_set_code(entry, octets(language));
      desc0an_set_audiotype(entry, 0);
    });
    add(0x0f, static_cast<std::uint16_t>(videoPid + tag),
        joined({rawDescriptor(0x52, {octet(static_cast<std::size_t>(tag))}), code}));
  }
  if (hasData) {
    add(0x0b, carouselPid,
        joined({rawDescriptor(0x52, {carouselTag}), rawDescriptor(0x13, {0, 0, 0, carouselId, 0}),
                rawDescriptor(0x66, {0x01, 0x23})}));
    add(0x0c, eventPid, rawDescriptor(0x52, {eventTag}));
  }
  return section.finish();
}

Bytes nit() {
  SectionBuilder section([](std::uint8_t* data) { nit_init(data, true); });
  psi_set_tableidext(section.data(), network);
  section.number(5, 0, 0);
  const std::string name = utf8("Réseau d’échantillon");
  const Bytes names = descriptor([&](std::uint8_t* desc) {
    desc40_init(desc);
    desc40_set_networkname(desc, octets(name), octet(name.size()));
  });
  nit_set_desclength(section.data(), static_cast<std::uint16_t>(names.size()));
  section.startAt(NIT_HEADER_SIZE);
  section.append(names);
  Bytes list;
  Bytes channels;
  for (const SampleService& service : services()) {
    const std::uint8_t id[] = {octet(service.id >> 8U), octet(service.id & 0xffU)};
    list.insert(list.end(), {id[0], id[1], service.type});
    channels.insert(channels.end(), {id[0], id[1], 0xfc, octet(service.id - 1000U)});
  }
  const Bytes terrestrial = descriptor([](std::uint8_t* desc) {
    desc5a_init(desc);
    desc5a_set_frequency(desc, 57'000'000);
  });
  const Bytes loops[] = {
      joined({rawDescriptor(0x41, list), terrestrial, rawDescriptor(0x5f, {0, 0, 0, 0x28}),
              rawDescriptor(0x83, channels)}),
      rawDescriptor(0x41, {0x07, 0xd1, 0x01})};
  std::uint8_t* const header = section.append(NIT_HEADER2_SIZE);
  nith_init(header);
  std::size_t length = 0;
  std::uint16_t id = transportStream;
  for (const Bytes& loop : loops) {
    std::uint8_t* const entry = section.append(NIT_TS_SIZE);
    nitn_init(entry);
    nitn_set_tsid(entry, id);
    nitn_set_onid(entry, network);
    nitn_set_desclength(entry, static_cast<std::uint16_t>(loop.size()));
    section.append(loop);
    length += NIT_TS_SIZE + loop.size();
    id = otherStream;
  }
  nith_set_tslength(header, static_cast<std::uint16_t>(length));
  return section.finish();
}

Bytes bat() {
  SectionBuilder section([](std::uint8_t* data) { bat_init(data); });
  psi_set_tableidext(section.data(), 0x3001);
  section.number(0, 0, 0);
  const std::string name = "Quillwork bouquet";
  const Bytes names = rawDescriptor(0x47, {name.begin(), name.end()});
  bat_set_desclength(section.data(), static_cast<std::uint16_t>(names.size()));
  section.startAt(BAT_HEADER_SIZE);
  section.append(names);
  std::uint8_t* const header = section.append(BAT_HEADER2_SIZE);
  bath_init(header);
  std::uint8_t* const entry = section.append(BAT_TS_SIZE);
  batn_init(entry);
  batn_set_tsid(entry, transportStream);
  batn_set_onid(entry, network);
  batn_set_desclength(entry, 0);
  bath_set_tslength(header, BAT_TS_SIZE);
  return section.finish();
}

void addService(SectionBuilder& section, const SampleService& service, bool hasEvents) {
  std::uint8_t* const entry = section.append(SDT_SERVICE_SIZE);
  sdtn_init(entry);
  sdtn_set_sid(entry, service.id);
  if (hasEvents) {
    sdtn_set_eitschedule(entry);
    sdtn_set_eitpresent(entry);
  }
  sdtn_set_running(entry, 4);
  if (service.isScrambled) sdtn_set_ca(entry);
  const Bytes loop = serviceDescriptor(service);
  sdtn_set_desclength(entry, static_cast<std::uint16_t>(loop.size()));
  section.append(loop);
}

Bytes sdt(bool isActual) {
  SectionBuilder section([=](std::uint8_t* data) { sdt_init(data, isActual); });
  psi_set_tableidext(section.data(), isActual ? transportStream : otherStream);
  sdt_set_onid(section.data(), network);
  section.number(4, 0, 0);
  section.startAt(SDT_HEADER_SIZE);
  if (isActual) {
    for (const SampleService& service : services()) addService(section, service, true);
  } else {
    addService(section, {2001, 0x01, 0, false, "Quillwork", "Elsewhere", {}}, false);
  }
  return section.finish();
}

std::uint16_t eventId(const SampleService& service, int index) {
  return static_cast<std::uint16_t>((service.id - 1000) * 100 + index);
}

void addEvent(SectionBuilder& section, const SampleService& service, int index, std::time_t time) {
  const std::time_t start = midnight + index * eventSeconds;
  std::uint8_t* const entry = section.append(EIT_EVENT_SIZE);
  eitn_init(entry);
  eitn_set_event_id(entry, eventId(service, index));
  eitn_set_start_time(entry, dvb_time_encode_UTC(start));
  eitn_set_duration_bcd(entry, dvb_time_encode_duration(static_cast<unsigned>(eventSeconds)));
  eitn_set_running(entry, time >= start && time < start + eventSeconds ? 4 : 1);
  if (service.isScrambled) eitn_set_ca(entry);
  const std::string& name = service.events[static_cast<std::size_t>(index)];
  Bytes loop = shortEvent(name, "Number " + std::to_string(index + 1) + " of the day");
  if (index == 10) loop = joined({loop, extendedEvent(longText())});
  loop = joined({loop,
                 rawDescriptor(0x54, {octet(0x10 * (1 + static_cast<std::size_t>(index) % 10)), 0}),
                 rawDescriptor(0x55, {'D', 'E', 'U', 3})});
  eitn_set_desclength(entry, static_cast<std::uint16_t>(loop.size()));
  section.append(loop);
}

Bytes eit(const SampleService& service, std::uint8_t tableId, std::uint8_t number,
          std::uint8_t last, const std::vector<int>& events, std::time_t time) {
  SectionBuilder section([](std::uint8_t* data) { eit_init(data, true); });
  psi_set_tableid(section.data(), tableId);
  psi_set_tableidext(section.data(), service.id);
  eit_set_tsid(section.data(), transportStream);
  eit_set_onid(section.data(), network);
  eit_set_segment_last_sec_number(section.data(), tableId == 0x4e ? last : number);
  eit_set_last_table_id(section.data(), tableId);
  // A new version for each hour.
  section.number(octet(static_cast<std::size_t>(1 + (time - now) / hour)), number, last);
  section.startAt(EIT_HEADER_SIZE);
  for (const int index : events) {
    if (index < eventsOfDay) addEvent(section, service, index, time);
  }
  return section.finish();
}

/// The present and the following event.
std::vector<Bytes> presentFollowing(const SampleService& service, std::time_t time) {
  const int present = static_cast<int>((time - midnight) / eventSeconds);
  return {eit(service, 0x4e, 0, 1, {present}, time), eit(service, 0x4e, 1, 1, {present + 1}, time)};
}

std::vector<Bytes> schedule(const SampleService& service, std::time_t time) {
  std::vector<Bytes> sections;
  // A segment of eight sections covers three hours.
  std::map<std::time_t, std::vector<int>> segments;
  for (int index = 0; index < eventsOfDay; ++index) {
    segments[index * eventSeconds / (3 * hour)].push_back(index);
  }
  for (const auto& [segment, events] : segments) {
    sections.push_back(
        eit(service, 0x50, octet(static_cast<std::size_t>(segment) * 8), 56, events, time));
  }
  return sections;
}

Bytes tdt(std::time_t time) {
  Bytes section(TDT_HEADER_SIZE);
  tdt_init(section.data());
  tdt_set_utc(section.data(), dvb_time_encode_UTC(time));
  return section;
}

Bytes tot(std::time_t time) {
  SectionBuilder section([](std::uint8_t* data) { tot_init(data); });
  tdt_set_utc(section.data(), dvb_time_encode_UTC(time));
  tot_set_desclength(section.data(), 0);
  section.startAt(TOT_HEADER_SIZE);
  return section.finish();
}

/// A private section of the greatest size.
Bytes privateSection() {
  SectionBuilder section([](std::uint8_t* data) { psi_init(data, true); });
  psi_set_tableid(section.data(), 0x81);
  psi_set_tableidext(section.data(), 0x4242);
  section.number(0, 0, 0);
  section.startAt(PSI_HEADER_SIZE_SYNTAX1);
  Bytes body(4096 - PSI_HEADER_SIZE_SYNTAX1 - PSI_CRC_SIZE);
  for (std::size_t index = 0; index < body.size(); ++index) body[index] = octet(index * 7 & 0xffU);
  section.append(body);
  return section.finish();
}

using PacketBytes = std::array<std::uint8_t, TS_SIZE>;

/// Sections in packets, each section from a packet's beginning on.
class Packetizer {
 public:
  std::vector<PacketBytes> packets(std::uint16_t pid, const Bytes& section) {
    std::vector<PacketBytes> all;
    std::size_t offset = 0;
    while (offset < section.size()) {
      PacketBytes packet;
      packet.fill(0xff);
      ts_init(packet.data());
      ts_set_pid(packet.data(), pid);
      ts_set_payload(packet.data());
      ts_set_cc(packet.data(), counters_[pid]++ & 0x0fU);
      std::size_t begin = TS_HEADER_SIZE;
      if (offset == 0) {
        ts_set_unitstart(packet.data());
        packet[begin++] = 0;
      }
      const std::size_t size = std::min(packet.size() - begin, section.size() - offset);
      std::memcpy(packet.data() + begin, section.data() + offset, size);
      offset += size;
      all.push_back(packet);
    }
    return all;
  }

 private:
  std::map<std::uint16_t, std::uint8_t> counters_;
};

/// The tables alone, four times over, one after the other: no time passes.
std::vector<PacketBytes> tables() {
  Packetizer packetizer;
  std::vector<PacketBytes> stream;
  const auto write = [&](std::uint16_t pid, const Bytes& section) {
    const auto packets = packetizer.packets(pid, section);
    stream.insert(stream.end(), packets.begin(), packets.end());
  };
  for (int turn = 0; turn < 4; ++turn) {
    write(PAT_PID, pat());
    write(CAT_PID, cat());
    for (const SampleService& service : services()) write(service.pmtPid, pmt(service, false));
    write(NIT_PID, nit());
    write(SDT_PID, sdt(true));
    write(SDT_PID, sdt(false));
    write(SDT_PID, bat());
    for (const SampleService& service : services()) {
      for (const Bytes& section : presentFollowing(service, now)) write(EIT_PID, section);
      for (const Bytes& section : schedule(service, now)) write(EIT_PID, section);
    }
    write(TDT_PID, tdt(now + turn));
    write(TDT_PID, tot(now + turn));
    write(privatePid, privateSection());
  }
  return stream;
}

// The whole stream: pictures and sound, and everything else at its time.

constexpr double bitRate = 1'200'000;
constexpr double length = 40;      // seconds
constexpr double changeTime = 20;  // when the events move on, and the carousel changes
/// So that the next event begins at the change.
constexpr std::time_t begin = midnight + 22 * hour - static_cast<std::time_t>(changeTime);

receiver::CarouselObject carouselFile(const std::string& text) {
  receiver::CarouselObject object;
  object.kind = receiver::CarouselObject::Kind::file;
  object.content = std::make_shared<const Bytes>(text.begin(), text.end());
  return object;
}

receiver::CarouselTree carousel(bool isChanged) {
  receiver::CarouselObject events;
  events.kind = receiver::CarouselObject::Kind::streamEvent;
  events.componentTag = eventTag;
  events.events = {{"nclEditingCommand", 1}, {"goal", 2}};
  std::string picture;
  for (int index = 0; index < 6000; ++index) picture += static_cast<char>(index * 31 & 0xff);
  receiver::CarouselTree tree = {
      {"/index.html",
       carouselFile(isChanged ? "<h1>The second half</h1>\n" : "<h1>The first half</h1>\n")},
      {"/media", {}},
      {"/media/picture.bin", carouselFile(picture)},
      {"/events", events},
  };
  if (isChanged) tree["/media/new.txt"] = carouselFile("new\n");
  return tree;
}

/// A stream event that is to be done at once (ETSI TS 102 809, B.2.4).
Bytes streamEvent(std::uint16_t id, std::uint8_t version, const std::string& data) {
  sample::ByteBuilder descriptor;
  descriptor.number(id, 2).number(0xfffffffe00000000, 8).bytes(data);
  sample::ByteBuilder body;
  body.number(0x1a, 1).sized(1, descriptor);
  return sample::longSection(0x3d, id, version, 0, 0, body);
}

/// The private data of an editing command in one part (ABNT NBR 15606-2, stream event descriptor).
std::string editingCommand(char tag, const std::string& text) {
  const auto size = static_cast<char>(text.size() + 2);
  constexpr char onlyPart = 1;      // the number 0, and the flag of the last part
  constexpr char checkByte = '\0';  // receivers go by the section's CRC
  return std::string{size, tag, onlyPart} + text + checkByte;
}

struct Sending {
  double time;
  std::uint16_t pid;
  Bytes section;
};

std::vector<Sending> sendings() {
  std::vector<Sending> all;
  const auto repeat = [&](double first, double period, double last, std::uint16_t pid,
                          const auto& make) {
    for (int turn = 0; first + turn * period < last; ++turn) {
      const double time = first + turn * period;
      all.push_back({time, pid, make(time)});
    }
  };
  const auto timeOf = [](double time) { return begin + static_cast<std::time_t>(time); };
  repeat(0.00, 0.25, length, PAT_PID, [](double) { return pat(); });
  repeat(0.05, 1, length, CAT_PID, [](double) { return cat(); });
  repeat(0.10, 2, length, NIT_PID, [](double) { return nit(); });
  repeat(0.15, 1, length, SDT_PID, [](double) { return sdt(true); });
  repeat(0.20, 2, length, SDT_PID, [](double) { return sdt(false); });
  repeat(0.25, 2, length, SDT_PID, [](double) { return bat(); });
  repeat(0.30, 1, length, TDT_PID, [&](double time) { return tdt(timeOf(time)); });
  repeat(0.35, 5, length, TDT_PID, [&](double time) { return tot(timeOf(time)); });
  repeat(0.60, 4, length, privatePid, [](double) { return privateSection(); });
  for (const SampleService& service : services()) {
    const bool hasData = &service == &services().front();
    repeat(0.02, 0.5, length, service.pmtPid, [&](double) { return pmt(service, hasData); });
    for (const std::size_t which : {std::size_t{0}, std::size_t{1}}) {
      repeat(0.40, 1, length, EIT_PID,
             [&](double time) { return presentFollowing(service, timeOf(time))[which]; });
    }
    for (std::size_t which = 0; which < schedule(service, begin).size(); ++which) {
      repeat(0.50, 5, length, EIT_PID,
             [&](double time) { return schedule(service, timeOf(time))[which]; });
    }
  }
  for (const bool isChanged : {false, true}) {
    const double first = isChanged ? changeTime : 0;
    for (const Bytes& section :
         sample::carouselSections(carouselId, isChanged ? 2 : 1, carousel(isChanged))) {
      repeat(first, 2, first + changeTime, carouselPid, [&](double) { return section; });
    }
  }
  // Each three times, as broadcasters do.
  const struct {
    double time;
    std::uint16_t id;
    std::string data;
  } events[] = {{8, 2, "1:0"},
                {12, 1, editingCommand(5, "startDocument index")},
                {28, 1, editingCommand(6, "stopDocument index")},
                {32, 2, "2:0"}};
  std::uint8_t version = 0;
  for (const auto& event : events) {
    ++version;
    repeat(event.time, 0.2, event.time + 0.5, eventPid,
           [&](double) { return streamEvent(event.id, version, event.data); });
  }
  std::ranges::stable_sort(all, {}, &Sending::time);
  return all;
}

/// Empty packets, and every 40 ms one with the clock on the PID that the first program's map names.
std::vector<PacketBytes> emptyTemplate() {
  const auto count = static_cast<std::size_t>(length * bitRate / (8 * TS_SIZE));
  const auto clockPid = static_cast<std::uint16_t>(services().front().pmtPid + 1);
  std::vector<PacketBytes> packets(count);
  double nextClock = 0;
  for (std::size_t index = 0; index < count; ++index) {
    PacketBytes& packet = packets[index];
    packet.fill(0xff);
    ts_pad(packet.data());
    const double time = static_cast<double>(index) * TS_SIZE * 8 / bitRate;
    if (time < nextClock) continue;
    nextClock += 0.04;
    packet.fill(0xff);
    ts_init(packet.data());
    ts_set_pid(packet.data(), clockPid);
    ts_set_adaptation(packet.data(), TS_SIZE - TS_HEADER_SIZE - 1);
    tsaf_set_pcr(packet.data(), static_cast<std::uint64_t>(time * 90'000));
    tsaf_set_pcrext(packet.data(), 0);
  }
  return packets;
}

std::vector<PacketBytes> readTemplate(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<PacketBytes> packets;
  for (PacketBytes packet; file.read(reinterpret_cast<char*>(packet.data()),
                                     static_cast<std::streamsize>(packet.size()));) {
    packets.push_back(packet);
  }
  return packets;
}

/// Puts what is to be sent in the places of packets that carry neither pictures nor sound.
std::vector<PacketBytes> multiplex(std::vector<PacketBytes> packets) {
  Packetizer packetizer;
  std::deque<PacketBytes> waiting;
  const std::vector<Sending> all = sendings();
  auto next = all.begin();
  for (std::size_t index = 0; index < packets.size(); ++index) {
    const double time = static_cast<double>(index) * TS_SIZE * 8 / bitRate;
    for (; next != all.end() && next->time <= time; ++next) {
      const auto more = packetizer.packets(next->pid, next->section);
      waiting.insert(waiting.end(), more.begin(), more.end());
    }
    const std::uint16_t pid = ts_get_pid(packets[index].data());
    const bool isKept = std::ranges::any_of(services(), [&](const SampleService& service) {
      return pid > service.pmtPid && pid <= service.pmtPid + 4;
    });
    if (isKept) continue;
    if (waiting.empty()) {
      packets[index].fill(0xff);
      ts_pad(packets[index].data());
    } else {
      packets[index] = waiting.front();
      waiting.pop_front();
    }
  }
  return packets;
}

bool write(const std::string& path, const std::vector<PacketBytes>& packets) {
  std::ofstream file(path, std::ios::binary);
  for (const PacketBytes& packet : packets) {
    file.write(reinterpret_cast<const char*>(packet.data()),
               static_cast<std::streamsize>(packet.size()));
  }
  file.close();
  return !file.fail();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  if (words.empty() || words.size() > 2) {
    std::fprintf(stderr,
                 "usage: quillwork-make-sample STREAM.ts [PICTURES_AND_SOUND.ts]\n"
                 "       quillwork-make-sample --tables STREAM.ts\n");
    return EXIT_FAILURE;
  }
  const bool isTables = words[0] == "--tables" && words.size() == 2;
  const std::string& path = words[isTables ? 1 : 0];
  const bool hasPictures = !isTables && words.size() == 2;
  const bool isWritten = write(
      path, isTables ? tables()
                     : multiplex(hasPictures ? readTemplate(words[1].c_str()) : emptyTemplate()));
  if (!isWritten) {
    std::fprintf(stderr, "quillwork-make-sample: %s: cannot be written\n", path.c_str());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
