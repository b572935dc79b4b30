#include "receiver/Complaint.h"

#include <cstdio>

#include "ipc/Report.h"

namespace receiver {

void complainOf(std::string_view text) noexcept {
  quillwork::printLine(stderr, {"quillwork-receiver: ", text});
}

}  // namespace receiver
