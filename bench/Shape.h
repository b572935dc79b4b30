#pragma once

#include <cstddef>

namespace bench {

/// How large the answers of a server are, the library's host and the floor alike.
struct Shape {
  std::size_t services = 0;
  /// Of each service's name; 0 for serviceName.
  std::size_t nameLength = 0;
  std::size_t events = 0;
  /// In each of an event's three byte lists, and texts in each of its three text lists.
  std::size_t eventBytes = 0;
  std::size_t eventTexts = 0;
  std::size_t descriptors = 0;
  std::size_t descriptorBytes = 0;
  std::size_t section = 0;
  /// So many listeners at a manager without an adapter; none for the adapter.
  std::size_t listeners = 0;
  /// So many records of a list leave the floor in one send.
  std::size_t piece = 16;
};

inline constexpr int currentService = 1001;
inline constexpr const char* codingFormat = "DVB";
inline constexpr const char* serviceName = "A Night at the Observatory";
inline constexpr const char* eventText = "Second part of three";
inline constexpr int mediaBounds[] = {10, 20, 640, 480};
inline constexpr unsigned char filler = 'd';

}  // namespace bench
