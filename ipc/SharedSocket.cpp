#include "ipc/SharedSocket.h"

#include <sys/socket.h>

#include <atomic>
#include <utility>

namespace quillwork {

void SharedSocket::own(Descriptor socket) {
  const Lock lock(mutex_);
  end();
  own_ = socket.release();
  std::atomic_ref(shared_).store(own_);
}

int SharedSocket::number() const {
  const Lock lock(mutex_);
  return own_;
}

void SharedSocket::shutDown() {
  const Lock lock(mutex_);
  if (own_ != -1) shutdown(own_, SHUT_RDWR);
}

void SharedSocket::close() {
  const Lock lock(mutex_);
  end();
}

void SharedSocket::end() {
  if (own_ == -1) return;
  shutdown(own_, SHUT_RDWR);
  int expected = own_;
  std::atomic_ref(shared_).compare_exchange_strong(expected, -1);
  Descriptor(std::exchange(own_, -1)).close();
}

}  // namespace quillwork
