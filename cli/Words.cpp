#include "cli/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <utility>

namespace quillwork::cli::words {
namespace {

struct Word {
  std::int32_t number;
  std::string_view text;
};

template <std::size_t Size>
std::string find(const Word (&words)[Size], std::int32_t number) {
  const auto found = std::ranges::find(words, number, &Word::number);
  return found == std::end(words) ? std::string() : std::string(found->text);
}

constexpr Word serviceTypes[] = {
    {0x01, "digital television"},
    {0x02, "digital radio"},
    {0x03, "teletext"},
    {0x04, "NVOD reference"},
    {0x05, "NVOD time-shifted"},
    {0x06, "mosaic"},
    {0x07, "FM radio"},
    {0x08, "DVB SRM"},
    {0x0a, "advanced codec digital radio"},
    {0x0b, "H.264/AVC mosaic"},
    {0x0c, "data broadcast"},
    {0x0d, "common interface"},
    {0x0e, "RCS map"},
    {0x0f, "RCS forward link signalling"},
    {0x10, "DVB MHP"},
    {0x11, "MPEG-2 HD digital television"},
    {0x16, "H.264/AVC SD digital television"},
    {0x17, "H.264/AVC SD NVOD time-shifted"},
    {0x18, "H.264/AVC SD NVOD reference"},
    {0x19, "H.264/AVC HD digital television"},
    {0x1a, "H.264/AVC HD NVOD time-shifted"},
    {0x1b, "H.264/AVC HD NVOD reference"},
    {0x1c, "H.264/AVC plano-stereoscopic HD digital television"},
    {0x1d, "H.264/AVC plano-stereoscopic HD NVOD time-shifted"},
    {0x1e, "H.264/AVC plano-stereoscopic HD NVOD reference"},
    {0x1f, "HEVC digital television"},
    {0x20, "HEVC UHD digital television"},
    {0xc0, "ISDB data"},
};

constexpr Word runningStatuses[] = {
    {0, "undefined"}, {1, "not running"}, {2, "starts in a few seconds"},
    {3, "pausing"},   {4, "running"},     {5, "off air"},
};

constexpr Word streamTypes[] = {
    {0x01, "MPEG-1 video"},
    {0x02, "MPEG-2 video"},
    {0x03, "MPEG-1 audio"},
    {0x04, "MPEG-2 audio"},
    {0x05, "private sections"},
    {0x06, "private PES packets"},
    {0x07, "MHEG"},
    {0x08, "DSM-CC"},
    {0x0a, "DSM-CC multiprotocol encapsulation"},
    {0x0b, "DSM-CC U-N messages"},
    {0x0c, "DSM-CC stream descriptors"},
    {0x0d, "DSM-CC sections"},
    {0x0e, "auxiliary data"},
    {0x0f, "AAC audio (ADTS)"},
    {0x10, "MPEG-4 video"},
    {0x11, "AAC audio (LATM)"},
    {0x15, "metadata in PES packets"},
    {0x16, "metadata in sections"},
    {0x1b, "H.264/AVC video"},
    {0x1c, "MPEG-4 audio"},
    {0x1f, "H.264/AVC scalable video"},
    {0x20, "H.264/AVC multiview video"},
    {0x21, "JPEG 2000 video"},
    {0x24, "HEVC video"},
    {0x33, "VVC video"},
    {0x81, "AC-3 audio (ATSC)"},
    {0x86, "SCTE 35 splice information"},
    {0x87, "E-AC-3 audio (ATSC)"},
};

/// By the first nibble, and by both.
constexpr Word contents[] = {
    {0x1, "movie/drama"},
    {0x2, "news/current affairs"},
    {0x3, "show/game show"},
    {0x4, "sports"},
    {0x5, "children's/youth"},
    {0x6, "music/ballet/dance"},
    {0x7, "arts/culture"},
    {0x8, "social/political/economics"},
    {0x9, "education/science/factual"},
    {0xa, "leisure hobbies"},
    {0xb, "special characteristics"},
    {0xf, "user defined"},
};

constexpr Word detailedContents[] = {
    {0x11, "detective/thriller"},
    {0x12, "adventure/western/war"},
    {0x13, "science fiction/fantasy/horror"},
    {0x14, "comedy"},
    {0x15, "soap/melodrama/folkloric"},
    {0x16, "romance"},
    {0x17, "serious/classical/religious/historical"},
    {0x18, "adult"},
    {0x21, "news/weather report"},
    {0x22, "news magazine"},
    {0x23, "documentary"},
    {0x24, "discussion/interview/debate"},
    {0x31, "game show/quiz/contest"},
    {0x32, "variety show"},
    {0x33, "talk show"},
    {0x41, "special events"},
    {0x42, "sports magazine"},
    {0x43, "football/soccer"},
    {0x44, "tennis/squash"},
    {0x45, "team sports"},
    {0x46, "athletics"},
    {0x47, "motor sport"},
    {0x48, "water sport"},
    {0x49, "winter sports"},
    {0x4a, "equestrian"},
    {0x4b, "martial sports"},
    {0x51, "pre-school"},
    {0x52, "entertainment for 6 to 14"},
    {0x53, "entertainment for 10 to 16"},
    {0x54, "informational/educational/school"},
    {0x55, "cartoons/puppets"},
    {0x61, "rock/pop"},
    {0x62, "serious/classical music"},
    {0x63, "folk/traditional music"},
    {0x64, "jazz"},
    {0x65, "musical/opera"},
    {0x66, "ballet"},
    {0x71, "performing arts"},
    {0x72, "fine arts"},
    {0x73, "religion"},
    {0x74, "popular culture/traditional arts"},
    {0x75, "literature"},
    {0x76, "film/cinema"},
    {0x77, "experimental film/video"},
    {0x78, "broadcasting/press"},
    {0x79, "new media"},
    {0x7a, "arts/culture magazines"},
    {0x7b, "fashion"},
    {0x81, "magazines/reports/documentary"},
    {0x82, "economics/social advisory"},
    {0x83, "remarkable people"},
    {0x91, "nature/animals/environment"},
    {0x92, "technology/natural sciences"},
    {0x93, "medicine/physiology/psychology"},
    {0x94, "foreign countries/expeditions"},
    {0x95, "social/spiritual sciences"},
    {0x96, "further education"},
    {0x97, "languages"},
    {0xa1, "tourism/travel"},
    {0xa2, "handicraft"},
    {0xa3, "motoring"},
    {0xa4, "fitness and health"},
    {0xa5, "cooking"},
    {0xa6, "advertisement/shopping"},
    {0xa7, "gardening"},
    {0xb0, "original language"},
    {0xb1, "black and white"},
    {0xb2, "unpublished"},
    {0xb3, "live broadcast"},
    {0xb4, "plano-stereoscopic"},
};

/// By the first byte.
constexpr Word caSystems[] = {
    {0x01, "Mediaguard"}, {0x05, "Viaccess"},    {0x06, "Irdeto"},  {0x09, "VideoGuard"},
    {0x0b, "Conax"},      {0x0d, "CryptoWorks"}, {0x0e, "PowerVu"}, {0x10, "RAS"},
    {0x17, "BetaCrypt"},  {0x18, "Nagravision"}, {0x26, "BISS"},
};

constexpr Word descriptors[] = {
    {0x13, "carousel identifier"},
    {0x14, "association tag"},
    {0x15, "deferred association tags"},
    {0x17, "NPT reference"},
    {0x18, "NPT endpoint"},
    {0x1a, "stream event"},
    {0x45, "VBI data"},
    {0x51, "mosaic"},
    {0x5b, "multilingual network name"},
    {0x5c, "multilingual bouquet name"},
    {0x5d, "multilingual service name"},
    {0x5e, "multilingual component"},
    {0x64, "data broadcast"},
    {0x6c, "cell list"},
    {0x6d, "cell frequency link"},
    {0x6f, "application signalling"},
    {0x71, "service identifier"},
    {0x73, "default authority"},
    {0x74, "related content"},
    {0x76, "content identifier"},
    {0x79, "S2 satellite delivery"},
    {0x7d, "XAIT location"},
    {0x7e, "FTA content management"},
    {0x7f, "extension"},
};

}  // namespace

std::string serviceType(std::int32_t type) {
  if (type >= 0x80 && type <= 0xfe && type != 0xc0) return "user defined";
  return find(serviceTypes, type);
}

std::string runningStatus(std::int32_t status) { return find(runningStatuses, status); }

std::string streamType(std::int32_t type) { return find(streamTypes, type); }

std::string eventTable(std::int32_t table) {
  if (table == 0x4e) return "p/f";
  if (table == 0x4f) return "p/f other";
  if (table >= 0x50 && table <= 0x5f) return "schedule";
  if (table >= 0x60 && table <= 0x6f) return "schedule other";
  return {};
}

std::vector<std::string> content(std::span<const std::uint8_t> entries, std::int32_t network) {
  constexpr std::int32_t firstOfIsdb = 0x7800;
  std::vector<std::string> list;
  if (network >= firstOfIsdb && network < 0x8000) return list;
  for (std::size_t index = 0; index + 2 <= entries.size(); index += 2) {
    std::string word = find(contents, entries[index] >> 4);
    const std::string detail = find(detailedContents, entries[index]);
    if (word.empty()) continue;
    list.push_back(detail.empty() ? word : fmt::format("{}: {}", word, detail));
  }
  return list;
}

std::vector<std::string> parentalRating(std::span<const std::uint8_t> entries) {
  std::vector<std::string> list;
  for (std::size_t index = 0; index + 4 <= entries.size(); index += 4) {
    std::string country;
    for (const std::uint8_t letter : entries.subspan(index, 3)) {
      if (std::isalnum(letter) != 0) country += static_cast<char>(letter);
    }
    const std::uint8_t rating = entries[index + 3];
    if (rating == 0) {
      list.push_back(country + ": undefined");
    } else if (rating <= 0x0f) {
      list.push_back(fmt::format("{}: from {}", country, rating + 3));
    } else {
      list.push_back(fmt::format("{}: {:#04x} of the broadcaster", country, rating));
    }
  }
  return list;
}

std::string caSystem(std::int32_t system) {
  if (system == 0x0005) return "B-CAS";
  return find(caSystems, system >> 8);
}

std::string delivery(std::int32_t mode) {
  constexpr Word deliveries[] = {{1, "satellite"}, {2, "cable"}, {3, "terrestrial"}};
  const std::string known = find(deliveries, mode);
  return known.empty() ? "unknown" : known;
}

std::string descriptor(std::int32_t tag) { return find(descriptors, tag); }

}  // namespace quillwork::cli::words
