#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// The broadcast's numbers in words. Empty where a number has none.
namespace quillwork::cli::words {

/// service_type (ETSI EN 300 468, table 87).
std::string serviceType(std::int32_t type);
/// running_status (EN 300 468, table 6).
std::string runningStatus(std::int32_t status);
/// stream_type (ISO/IEC 13818-1, table 2-34).
std::string streamType(std::int32_t type);
/// table_id of an EIT.
std::string eventTable(std::int32_t table);
/// Each entry of content descriptors, of two bytes (EN 300 468, table 28). Empty for the networks
/// of ISDB, which have genres of their own.
std::vector<std::string> content(std::span<const std::uint8_t> entries, std::int32_t network);
/// Each entry of parental rating descriptors, of four bytes.
std::vector<std::string> parentalRating(std::span<const std::uint8_t> entries);
/// CA_system_id (ETSI TS 101 162).
std::string caSystem(std::int32_t system);
/// The reference receiver's delivery.
std::string delivery(std::int32_t mode);
/// A descriptor's tag, where it means the same everywhere.
std::string descriptor(std::int32_t tag);

}  // namespace quillwork::cli::words
