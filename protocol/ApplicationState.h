#pragma once

#include <pthread.h>

#include <cstdint>

/// The calls that ask the client to change its application's state and wait for its answer. Their
/// state is the process's, not a manager's: a call that returns while the manager ends touches
/// nothing else.
namespace quillwork::application_state {

/// What the calls that wait are waiting on.
extern pthread_cond_t applicationStateCondition;

/// Grows at each end of a connection or of a manager, perhaps more than once. A call that finds
/// another number when it begins to wait has missed the end of the client that it asked.
std::uint32_t endedConnections();

/// Waits for the answer of the client that was asked when endedConnections() was `endedBefore`,
/// without a time limit. True when that client goes, or the manager ends, before it answers. An
/// answer that came before the wait is lost. Any number of threads may wait; one answer releases
/// one of them, in the order of their coming.
bool await(std::uint32_t endedBefore);

/// The client has answered.
void answer(bool result);

/// The client has gone, or the manager ends: every call that waits returns true.
void endConnection();

}  // namespace quillwork::application_state
