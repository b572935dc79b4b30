#pragma once

/// Every public header includes this one first: an older language fails at this sentence, before
/// anything else that it does not know.
#if __cplusplus <= 201703L
#error "quillwork-ipc needs C++20 or later: compile with -std=c++20"
#endif
