#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "receiver/SectionAssembler.h"
#include "receiver/SectionStore.h"
#include "receiver/StreamPlayer.h"
#include "receiver/Text.h"

namespace receiver {

/// A descriptor: its tag, and the bytes behind its length byte.
struct Descriptor {
  std::uint8_t tag;
  std::vector<std::uint8_t> data;
};
using Descriptors = std::vector<Descriptor>;

/// A service of the SDT (ETSI EN 300 468, 5.2.3), or a program of the PAT that no SDT names.
struct Service {
  std::uint16_t id;
  std::uint16_t transportStream;
  int originalNetwork;  ///< -1 where no SDT says it
  int type;             ///< service_type, -1 without a service descriptor
  int runningStatus;
  bool isScrambled;  ///< free_CA_mode
  bool hasSchedule;
  bool hasPresentFollowing;
  bool isActual;  ///< of the transport stream that is received
  bool isInPat;
  std::string name;
  std::string provider;
};

/// An event of the EIT (5.2.4). Times are as they are broadcast: UTC for DVB, local for ISDB.
struct Event {
  std::uint8_t tableId;
  std::uint16_t service;
  std::uint16_t transportStream;
  std::uint16_t originalNetwork;
  std::uint8_t section;
  std::uint8_t version;
  std::uint16_t id;
  std::int64_t start;  ///< seconds since 1970, -1 for undefined
  int duration;        ///< seconds, -1 for undefined
  int runningStatus;
  bool isScrambled;
  std::string language;  ///< ISO 639-2, empty without a short event descriptor
  std::string name;
  std::string text;
  std::string extendedText;  ///< of all extended event descriptors, joined before it is decoded
  /// Items of the extended event descriptors: description and text.
  std::vector<std::pair<std::string, std::string>> items;
  std::vector<std::uint8_t> content;         ///< two bytes for each content nibble pair
  std::vector<std::uint8_t> parentalRating;  ///< four bytes for each country
  Descriptors descriptors;
};

/// An elementary stream of a PMT (ISO/IEC 13818-1, 2.4.4.8).
struct Component {
  std::uint16_t pid;
  std::uint8_t streamType;
  int tag;  ///< of the stream identifier descriptor, -1 without one
  std::uint16_t program;
  std::string language;     ///< of the first language descriptor entry
  std::set<int> caSystems;  ///< of its CA descriptors
  Descriptors descriptors;

  /// By its stream type (ISO/IEC 13818-1, table 2-34).
  [[nodiscard]] bool isVideo() const;
  /// By its stream type, or in private packets by the descriptor of its coding: AC-3, enhanced
  /// AC-3, DTS or AAC (ETSI EN 300 468, annexes D, G and H).
  [[nodiscard]] bool isAudio() const;
};

struct ProgramMap {
  std::uint16_t program;
  std::uint16_t pid;
  std::uint16_t pcrPid;
  std::uint8_t version;
  std::set<int> caSystems;  ///< of the program's CA descriptors
  std::vector<Component> components;
};

/// How a transport stream is delivered; the values travel to the client.
enum class Delivery { unknown = 0, satellite = 1, cable = 2, terrestrial = 3 };

/// A transport stream of a NIT or BAT loop.
struct TransportStream {
  std::uint16_t id;
  std::uint16_t originalNetwork;
  Delivery delivery;
  double frequency;                   ///< MHz, 0 for unknown
  std::map<int, int> channelNumbers;  ///< by service id
  std::vector<int> services;          ///< of the service list descriptor
  Descriptors descriptors;
};

/// A network of the NIT (5.2.1), or a bouquet of the BAT (5.2.2).
struct Network {
  std::uint16_t id;
  bool isActual;
  std::string name;
  Descriptors descriptors;
  std::vector<TransportStream> transportStreams;
};

struct Counters {
  std::uint64_t packets = 0;
  std::uint64_t sections = 0;
  /// Sections whose content was new. A new version with equal content is no change.
  std::uint64_t changes = 0;
  StreamErrors errors;
};

/// The service information of a stream: keeps the newest section of each number of each table, from
/// the moment it arrives, and reads them when asked. Any thread: what is asked is decoded outside
/// of the lock that take() needs.
class ServiceInformation : public PacketSink {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// What the sections may take, with SectionStore::overhead for each: a flood of the one kind does
  /// not push out the other.
  static constexpr std::size_t maxEventBytes = 24U << 20U;
  static constexpr std::size_t maxOtherBytes = 8U << 20U;
  /// What an event counts besides its bytes, of which twelve suffice: asked for, it takes some
  /// hundreds more.
  static constexpr std::size_t eventOverhead = 256;
  /// A section that has not come for so long is off air: twice the longest period in which any is
  /// repeated (ETSI TR 101 211, 4.4).
  static constexpr std::chrono::minutes maxAge{10};

  /// `table`: the character table of texts that do not name their own; without one it is found out
  /// from the stream.
  explicit ServiceInformation(std::optional<CharacterTable> table,
                              Clock clock = std::chrono::steady_clock::now);

  void take(Packet packet) override;
  void interrupted(bool isOther) override;
  /// Counts from zero; what is known stays.
  void resetCounters();

  /// The transport stream id of the PAT, -1 before the first.
  [[nodiscard]] int transportStreamId() const;
  /// The version of the PAT, -1 before the first.
  [[nodiscard]] int patVersion() const;
  [[nodiscard]] std::vector<Service> services() const;
  [[nodiscard]] std::vector<Event> events() const;
  /// Calls `visit` with each event that `isWanted`, in turn. `isWanted` is called before the
  /// descriptors are read: the rest of the event is there.
  void forEachEvent(const std::function<bool(const Event&)>& isWanted,
                    const std::function<void(Event&&)>& visit) const;
  [[nodiscard]] std::size_t eventCount() const;
  [[nodiscard]] std::vector<ProgramMap> programMaps() const;
  [[nodiscard]] std::vector<Network> networks() const;
  [[nodiscard]] std::vector<Network> bouquets() const;
  /// Of the services of the SDT, by service id of the received stream.
  [[nodiscard]] Descriptors serviceDescriptors(int service) const;
  /// The CA systems of the CAT and of all PMTs, in order.
  [[nodiscard]] std::set<int> caSystems() const;
  /// The selected service where the PAT has it, or else the PAT's first program; -1 for none.
  [[nodiscard]] int currentService() const;
  /// -1 for whatever comes first.
  void selectService(int service);
  /// Changes whenever a PAT or PMT has changed.
  [[nodiscard]] std::uint64_t programGeneration() const { return programGeneration_; }
  /// Of the last TDT or TOT, in seconds since 1970; nothing before the first.
  [[nodiscard]] std::optional<std::int64_t> broadcastTime() const;
  [[nodiscard]] Counters counters() const;

 private:
  /// Reads texts in the character table that held when it was made.
  class Reader;

  void store(std::uint16_t pid, const Section& section);
  void storeTime(const Section& section);
  [[nodiscard]] bool isInPlace(std::uint16_t pid, const Section& section) const;
  void expire();
  void leaveStream(std::uint16_t next);
  void followPat();
  [[nodiscard]] CharacterTable findTable() const;
  [[nodiscard]] std::vector<HeldSection> sections(const SectionStore& store,
                                                  std::uint8_t firstTable,
                                                  std::uint8_t lastTable) const;
  [[nodiscard]] Reader reader() const;
  [[nodiscard]] std::vector<Network> readNetworks(bool bouquets) const;

  mutable std::mutex mutex_;
  const bool tableIsGiven_;
  const Clock clock_;
  CharacterTable table_;
  std::map<std::uint16_t, SectionAssembler> assemblers_;
  SectionStore tables_{maxOtherBytes};
  SectionStore eventTables_{maxEventBytes};
  std::map<std::uint16_t, std::uint16_t> programs_;  ///< the PAT: program to PMT PID
  std::vector<std::uint16_t> programOrder_;
  std::uint16_t networkPid_;
  int transportStreamId_ = -1;
  int patVersion_ = -1;
  bool patIsNew_ = false;     ///< and has not been followed to its end
  bool textsAreNew_ = false;  ///< what tells their character table, which has not been found since
  /// Of tables_: when the PAT came last.
  std::uint64_t lastPat_ = 0;
  std::optional<std::int64_t> time_;
  std::optional<std::chrono::steady_clock::time_point> lastSection_;
  /// For how long sections have come: an interruption makes nothing old.
  SectionStore::Time received_{};
  /// Changes when what was received before has nothing to do with what comes.
  std::uint64_t streamGeneration_ = 0;
  Counters counters_;
  std::atomic<std::uint64_t> programGeneration_{0};
  std::atomic<int> selected_{-1};
};

}  // namespace receiver
