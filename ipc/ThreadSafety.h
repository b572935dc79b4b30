#pragma once

#include "protocol/language.h"

/// Clang's thread-safety attributes: which lock guards what, and which function takes or needs it.
/// Other compilers see nothing of them. clang's documentation calls a lock a capability.

#if defined(__clang__)
#define QUILLWORK_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QUILLWORK_ATTRIBUTE(attribute)
#endif

#define QUILLWORK_CAPABILITY(kind) QUILLWORK_ATTRIBUTE(capability(kind))
#define QUILLWORK_SCOPED_CAPABILITY QUILLWORK_ATTRIBUTE(scoped_lockable)
#define QUILLWORK_GUARDED_BY(lock) QUILLWORK_ATTRIBUTE(guarded_by(lock))
#define QUILLWORK_ACQUIRED_BEFORE(...) QUILLWORK_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define QUILLWORK_REQUIRES(...) QUILLWORK_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QUILLWORK_EXCLUDES(...) QUILLWORK_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define QUILLWORK_ACQUIRE(...) QUILLWORK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QUILLWORK_ACQUIRE_SHARED(...) QUILLWORK_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define QUILLWORK_NO_THREAD_SAFETY_ANALYSIS QUILLWORK_ATTRIBUTE(no_thread_safety_analysis)
#define QUILLWORK_RELEASE(...) QUILLWORK_ATTRIBUTE(release_capability(__VA_ARGS__))
