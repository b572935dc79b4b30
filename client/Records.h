#pragma once

#include "protocol/language.h"

#include <array>
#include <cstdint>
#include <list>
#include <string>
#include <variant>
#include <vector>

/// What the client reads and writes, without the wire's fields of fixed size. The integers are the
/// middleware's, in the order of the protocol's records; docs/protocol.md places them, and
/// docs/receiver.md says what the reference receiver puts there.
namespace quillwork::client {

struct Service {
  std::array<std::int32_t, 5> values;
  std::string name;
};

struct ServiceComponent {
  std::array<std::int32_t, 6> values;
};

struct ProgramMap {
  std::array<std::int32_t, 4> values;
};

struct ProgramEvent {
  std::array<std::int32_t, 8> values;
  std::array<std::string, 3> texts;
  /// A list that is absent is empty here.
  std::array<std::vector<std::uint8_t>, 3> byteLists;
  std::array<std::vector<std::string>, 3> textLists;
};

struct Network {
  std::int32_t value;
  std::string name;
};

struct TransportStream {
  std::array<std::int32_t, 3> values;
  float real;
  std::int32_t mode;
};

struct Descriptor {
  std::int16_t tag;
  std::vector<std::uint8_t> data;
};

struct SystemProperty {
  std::string name;
  std::string value;
};

struct Rectangle {
  std::int32_t x;
  std::int32_t y;
  std::int32_t width;
  std::int32_t height;
};

/// What open() gives.
struct OpenedMedia {
  bool opened;
  std::int32_t player;
};

// What the receiver sends on its own.

struct EndOfMedia {
  std::int32_t player;
};

struct GraphicsSettingsChanged {
  Rectangle first;
  Rectangle second;
};

struct DownloadComplete {
  std::string first;
  std::string second;
};

/// The receiver waits for ControlChannel::answerApplicationState().
struct ApplicationState {
  std::int32_t state;
};

struct DsmCCCommand {
  std::int32_t code;
  double time;
  std::uint8_t flag;
  std::string text;
};

using Notification = std::variant<EndOfMedia, GraphicsSettingsChanged, DownloadComplete,
                                  ApplicationState, DsmCCCommand>;

}  // namespace quillwork::client
