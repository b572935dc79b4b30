#pragma once

#include <string>

#include "ipc/Descriptor.h"

namespace quillwork::cli {

/// A connection to the Unix-domain socket at a path; none, and errno, where nobody accepts.
Descriptor connectTo(const std::string& path);

/// Whether somebody accepts connections there, or would if no others waited.
bool isServed(const std::string& path);

/// Listens at a path where nothing is yet. Throws Refusal when that fails.
Descriptor listenAt(const std::string& path);

}  // namespace quillwork::cli
