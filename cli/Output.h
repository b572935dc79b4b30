#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "client/Records.h"

/// How the command-line client shows what it has read: as tables for people, with the columns that
/// the reference receiver's records have, and as JSON for programs, with the protocol's field
/// names.
namespace quillwork::client {

using Json = nlohmann::ordered_json;

Json toJson(const Service& service);
Json toJson(const ServiceComponent& component);
Json toJson(const ProgramMap& map);
Json toJson(const ProgramEvent& event);
Json toJson(const Network& network);
Json toJson(const TransportStream& stream);
Json toJson(const Descriptor& descriptor);
Json toJson(const SystemProperty& property);
Json toJson(const Notification& notification);

void printTable(const std::vector<Service>& services);
void printTable(const std::vector<ServiceComponent>& components);
void printTable(const std::vector<ProgramMap>& maps);
void printTable(const std::vector<ProgramEvent>& events);
void printTable(const std::vector<Descriptor>& descriptors);
void printTable(const std::vector<SystemProperty>& properties);
void printRecord(const ProgramEvent& event);
void printRecord(const Network& network);
void printRecord(const TransportStream& stream);
/// As JSON on one line, at once.
void printNotification(const Notification& notification);
/// Sixteen bytes a line, with their characters.
void printSection(const std::vector<std::uint8_t>& section);

/// Bytes as pairs of hexadecimal digits.
std::string hex(std::span<const std::uint8_t> bytes);
/// A text of the wire, which is bytes: what is not UTF-8 among them is replaced.
Json text(const std::string& bytes);

}  // namespace quillwork::client
