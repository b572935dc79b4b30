#include "receiver/MemoryBudget.h"

#include "receiver/Complaint.h"

namespace receiver {

bool MemoryBudget::take(std::uint64_t bytes) {
  std::uint64_t used = used_;
  do {
    if (bytes > limit_ - used) return false;
  } while (!used_.compare_exchange_weak(used, used + bytes));
  return true;
}

void MemoryBudget::release(std::uint64_t bytes) {
  if ((used_ -= bytes) <= limit_ / 2) hasRefused_ = false;
  ++releases_;
}

void MemoryBudget::refuse(const char* what) {
  if (hasRefused_.exchange(true)) return;
  complain("{} would hold more than {} MiB; what is too much is left out", what, limit_ >> 20U);
}

}  // namespace receiver
