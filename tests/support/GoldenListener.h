#pragma once

#include <utility>

#include "protocol/message.h"
#include "support/RecordingListener.h"

/// Fills a listener with the answers that the files in tests/golden show.
void giveGoldenAnswers(RecordingListener& listener);
