#pragma once

#include "adapter/AdapterOwner.h"
#include "adapter/MiddlewareIpc.h"

/// Deletes the adapter as a host's owner of it does.
inline void deleteAdapter(MiddlewareIpc* adapter) { quillwork::AdapterDeleter()(adapter); }
