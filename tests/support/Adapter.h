#pragma once

#include "adapter/MiddlewareIpc.h"

/// Deletes the adapter as what it is: its class has no virtual destructor.
inline void deleteAdapter(MiddlewareIpc* adapter) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
  delete adapter;
#pragma GCC diagnostic pop
}
