#pragma once

#include "protocol/language.h"

/// Marks a function that the host process or its facade library defines: the library is built with
/// hidden visibility, and a hidden reference could not be resolved from outside.
#define QUILLWORK_HOST_DEFINED __attribute__((visibility("default")))
