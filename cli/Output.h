#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/Records.h"

/// How the command-line client shows what it has read: as tables for people, with the columns that
/// the reference receiver's records have, and as JSON for programs, with the protocol's field
/// names.
namespace quillwork::cli {

using Json = nlohmann::ordered_json;

/// A program map with the name of its service.
struct NamedMap {
  client::ProgramMap map;
  std::string service;
};
struct DescribedDescriptor;

// The protocol's fields, and behind them words for what the reference receiver puts there.
Json toJson(const client::Service& service);
Json toJson(const client::ServiceComponent& component);
Json toJson(const NamedMap& map);
Json toJson(const client::ProgramEvent& event);
Json toJson(const client::Network& network);
Json toJson(const client::TransportStream& stream);
Json toJson(const DescribedDescriptor& descriptor);
Json toJson(const client::SystemProperty& property);
Json toJson(const client::Notification& notification);

void printTable(const std::vector<client::Service>& services);
void printTable(const std::vector<client::ServiceComponent>& components);
void printTable(const std::vector<NamedMap>& maps);
void printTable(const std::vector<client::ProgramEvent>& events);
void printTable(const std::vector<DescribedDescriptor>& descriptors);
void printTable(const std::vector<client::SystemProperty>& properties);
void printRecord(const client::ProgramEvent& event);
void printRecord(const client::Network& network);
void printRecord(const client::TransportStream& stream);
/// As JSON on one line, at once.
void printNotification(const client::Notification& notification);
/// Sixteen bytes a line, with their characters.
void printSection(const std::vector<std::uint8_t>& section);

/// Bytes as pairs of hexadecimal digits.
std::string hex(std::span<const std::uint8_t> bytes);
std::string hex(std::string_view bytes);
/// A text of the wire, which is bytes: what is not UTF-8 among them is replaced.
Json text(const std::string& bytes);
/// The same for people, on one line: what a terminal would obey becomes a blank.
std::string printable(const std::string& bytes);
/// JSON as text, each control character escaped, those that JSON would let through as well.
std::string written(const Json& json, int indent = -1);

/// Seconds since 1970, unsigned, as "2026-09-24 20:00:00"; "-" for all ones, which are none.
std::string time(std::int32_t seconds);

}  // namespace quillwork::cli
