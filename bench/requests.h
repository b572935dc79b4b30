#pragma once

#include <cstddef>
#include <cstdint>

#include "bench/Shape.h"
#include "protocol/message.h"

/// The bare client: requests on a connected socket, with as few calls as the protocol allows. Each
/// checks the answer and throws std::runtime_error for a wrong one. `record` is the request, which
/// the answer's last record replaces.
namespace bench {

using quillwork::message;

void require(bool right, const char* what);
void receive(int connection, void* data, std::size_t size);

void askService(int connection, message& record);
void askFormat(int connection, message& record);
void askBounds(int connection, message& record);
/// Receives record by record.
void askServices(int connection, message& record, std::size_t count);
/// Receives in pieces of 64 KiB.
void askServicesAtLarge(int connection, message& record, std::size_t count);
void askDescriptors(int connection, message& record, const Shape& shape);
void askEvents(int connection, message& record, const Shape& shape);
/// Asks for the current service and receives the reply and one notification, in any order.
void askServiceAndHear(int connection, message& record);
/// The number that a notification of the end of media carries.
std::int32_t receiveEndOfMedia(int connection);

void readSection(int connection, std::size_t size);
/// Set positive filter, for filterArg 0, with two vectors of eight bytes.
void setFilter(int connection);

}  // namespace bench
