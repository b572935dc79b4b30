#pragma once

#include <string>
#include <vector>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"

/// Asks a host with the golden files' answers through the client library, and compares what has
/// more than one record or bytes behind one, and one of everything else.
void askEverything(quillwork::client::ControlChannel& channel);

/// Makes each request of the section-filter channel once. The section that comes has 4096 bytes
/// 's'.
void askEverything(quillwork::client::SectionFilterChannel& channel);
/// What a DemuxRecorder is called with by that.
extern const std::vector<std::string> everySectionFilterCall;
