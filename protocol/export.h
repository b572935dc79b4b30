#pragma once

#include "protocol/language.h"

/// Marks the classes that the shared library exports; everything else is hidden.
#define QUILLWORK_EXPORT __attribute__((visibility("default")))

/// Marks what is private in an exported class.
#define QUILLWORK_HIDDEN __attribute__((visibility("hidden")))
