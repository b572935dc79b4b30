#pragma once

#include "protocol/language.h"

#include <memory>

#include "adapter/MiddlewareIpc.h"

namespace quillwork {

/// Deletes the adapter. MiddlewareIpc has no virtual destructor, and compilers warn of every
/// `delete` of such a class; here it is safe, because the pointer that
/// MiddlewareIpc::getInstance() gives always points to a MiddlewareIpc itself.
struct AdapterDeleter {
  /// Shuts the library down, as MiddlewareIpc::~MiddlewareIpc() says. A thread of the host's own;
  /// returns within two seconds whatever the client does.
  void operator()(MiddlewareIpc* adapter) const {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
    delete adapter;
#pragma GCC diagnostic pop
  }
};

/// Owns the adapter: `const quillwork::AdapterOwner adapter(MiddlewareIpc::getInstance());` shuts
/// the library down at the end of its scope. There is one adapter, so there is one owner: every
/// further call of getInstance() gives the same pointer, to borrow.
using AdapterOwner = std::unique_ptr<MiddlewareIpc, AdapterDeleter>;

}  // namespace quillwork
