#pragma once

#include "client/ControlChannel.h"

/// Asks a host with the golden files' answers through the client library, and compares what has
/// more than one record or bytes behind one, and one of everything else.
void askEverything(quillwork::client::ControlChannel& channel);
